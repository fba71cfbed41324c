#include "tools/common/row_printer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "platform/stock/text.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kOutputBytes = std::size_t{1} << 16;
/* A row is not kept back longer than this while others follow. */
constexpr std::chrono::milliseconds kLongest{50};

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

/* The characters that a terminal shows: UTF-8 continuation bytes do not count. */
std::size_t shown_width(const std::string &text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

/* The heading of a text table: one word, so that its columns can be counted. */
std::string heading(const Column &column) {
  const std::string &name = column.heading.empty() ? column.name : column.heading;
  return column.unit.empty() ? name : name + '/' + column.unit;
}

void put_csv_cell(const std::string &text, std::string &output) {
  const bool quoted = text.find_first_of(",\"\n\r") != std::string::npos;
  if (quoted) output += '"';
  for (const char c : text) {
    if (c == '"') output += '"';
    output += is_control(c) && c != '\n' && c != '\r' ? '?' : c;
  }
  if (quoted) output += '"';
}

std::string json_of(const nlohmann::ordered_json &value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

/* Whether JSON shows the text as it is: ASCII without quotes and escapes. */
bool is_plain(const std::string &text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
  });
}

void put_json_cell(const Column &column, const std::string &cell, std::string &output) {
  std::int64_t integer = 0;
  if (column.number && parse_integer(cell, integer)) {
    output += std::to_string(integer);
  } else if (column.number) {
    output += json_of(json_number(cell));
  } else if (cell.empty()) {
    output += "null";
  } else if (is_plain(cell)) {
    output += '"';
    output += cell;
    output += '"';
  } else {
    output += json_of(cell);
  }
}

}  // namespace

RowPrinter::RowPrinter(std::vector<Column> columns, Form form)
    : columns_(std::move(columns)), form_(form), cells_(columns_.size()) {
  for (std::size_t i = 0; i < columns_.size(); i++) {
    widths_.push_back(shown_width(heading(columns_[i])));
    names_.push_back(json_of(columns_[i].name));
    /* A name that comes again keeps its place and shows the last value. */
    const auto same = std::find_if(shown_.begin(), shown_.end(), [&](std::size_t s) {
      return columns_[s].name == columns_[i].name;
    });
    if (same == shown_.end()) {
      shown_.push_back(i);
    } else {
      *same = i;
    }
  }
  if (form_ == Form::kJson) output_ = "[";
  if (form_ == Form::kCsv) {
    std::vector<std::string> names;
    for (const Column &column : columns_) names.push_back(column.name);
    put_csv_line(names);
  }
}

void RowPrinter::add(const std::vector<std::string> &cells) {
  switch (form_) {
    case Form::kText:
      for (std::size_t i = 0; i < cells.size(); i++) {
        widths_[i] = std::max(widths_[i], shown_width(cells[i]));
      }
      cells_.add(cells);
      return;
    case Form::kCsv:
      put_csv_line(cells);
      break;
    case Form::kJson:
      put_object(cells);
      break;
  }
  any_ = true;
  write_when_due();
}

void RowPrinter::finish() {
  switch (form_) {
    case Form::kText: {
      std::vector<std::string> headings;
      for (const Column &column : columns_) headings.push_back(heading(column));
      put_table_line(headings);
      cells_.each([this](const std::vector<std::string> &cells) {
        put_table_line(cells);
        if (output_.size() >= kOutputBytes) write();
      });
      break;
    }
    case Form::kCsv:
      break;
    case Form::kJson:
      output_ += any_ ? "\n]\n" : "]\n";
      break;
  }
  write();
}

void RowPrinter::put_table_line(const std::vector<std::string> &cells) {
  const std::size_t start = output_.size();
  for (std::size_t i = 0; i < cells.size(); i++) {
    const std::size_t blanks = widths_[i] - shown_width(cells[i]);
    if (i > 0) output_ += "  ";
    if (columns_[i].right) output_.append(blanks, ' ');
    output_ += cells[i];
    if (!columns_[i].right) output_.append(blanks, ' ');
  }
  while (output_.size() > start && output_.back() == ' ') output_.pop_back();
  std::replace_if(output_.begin() + static_cast<std::ptrdiff_t>(start), output_.end(),
                  is_control, '?');
  output_ += '\n';
}

void RowPrinter::put_csv_line(const std::vector<std::string> &cells) {
  for (std::size_t i = 0; i < cells.size(); i++) {
    if (i > 0) output_ += ',';
    put_csv_cell(cells[i], output_);
  }
  output_ += '\n';
}

void RowPrinter::put_object(const std::vector<std::string> &cells) {
  output_ += any_ ? ",\n {" : "\n {";
  bool first = true;
  for (const std::size_t i : shown_) {
    output_ += first ? "\n  " : ",\n  ";
    first = false;
    output_ += names_[i];
    output_ += ": ";
    put_json_cell(columns_[i], cells[i], output_);
  }
  output_ += "\n }";
}

void RowPrinter::write() {
  std::fwrite(output_.data(), 1, output_.size(), stdout);
  output_.clear();
}

void RowPrinter::write_when_due() {
  const auto now = std::chrono::steady_clock::now();
  const bool late = now - written_ > kLongest;
  if (!late && output_.size() < kOutputBytes) return;
  write();
  if (late) std::fflush(stdout);
  written_ = now;
}

}  // namespace ksutil::tools
