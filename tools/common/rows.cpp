#include "tools/common/rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "platform/stock/text.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

std::string csv_cell(const std::string &text) {
  if (text.find_first_of(",\"\n\r") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

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

}  // namespace

void add_form_options(CLI::App &command, Form &form) {
  CLI::Option *json = command.add_flag_callback(
      "--json", [&form] { form = Form::kJson; }, "Print JSON");
  command
      .add_flag_callback(
          "--csv", [&form] { form = Form::kCsv; }, "Print comma-separated values")
      ->excludes(json);
}

nlohmann::ordered_json json_number(const std::string &text) {
  std::int64_t integer = 0;
  double real = 0.0;
  if (parse_integer(text, integer)) return integer;
  if (parse_real(text, real) && std::isfinite(real)) return real;
  return nullptr;
}

nlohmann::ordered_json json_text(const std::string &text) {
  if (text.empty()) return nullptr;
  return text;
}

void print_json(const nlohmann::ordered_json &value, int indent) {
  std::puts(
      value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
          .c_str());
}

Rows::Rows(std::vector<Column> columns, Form form)
    : columns_(std::move(columns)), form_(form) {}

void Rows::add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

void Rows::print() const {
  switch (form_) {
    case Form::kText:
      return print_text();
    case Form::kCsv:
      return print_csv();
    case Form::kJson:
      return tools::print_json(json());
  }
}

void Rows::print_text() const {
  std::vector<std::string> headings;
  std::vector<std::size_t> widths;
  for (const Column &column : columns_) {
    headings.push_back(heading(column));
    widths.push_back(shown_width(headings.back()));
  }
  for (const auto &row : rows_) {
    for (std::size_t i = 0; i < row.size(); i++) {
      widths[i] = std::max(widths[i], shown_width(row[i]));
    }
  }
  const auto put = [&](const std::vector<std::string> &cells) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); i++) {
      const std::string blanks(widths[i] - shown_width(cells[i]), ' ');
      if (i > 0) line += "  ";
      line += columns_[i].right ? blanks + cells[i] : cells[i] + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::puts(printable_text(line).c_str());
  };
  put(headings);
  for (const auto &row : rows_) put(row);
}

void Rows::print_csv() const {
  const auto put = [](const std::vector<std::string> &cells) {
    std::string line;
    for (const std::string &cell : cells) {
      if (&cell != &cells.front()) line += ',';
      line += csv_cell(cell);
    }
    std::puts(line.c_str());
  };
  std::vector<std::string> names;
  for (const Column &column : columns_) names.push_back(column.name);
  put(names);
  for (const auto &row : rows_) put(row);
}

nlohmann::ordered_json Rows::json() const {
  auto list = nlohmann::ordered_json::array();
  for (const auto &row : rows_) {
    auto object = nlohmann::ordered_json::object();
    for (std::size_t i = 0; i < row.size(); i++) {
      object[columns_[i].name] =
          columns_[i].number ? json_number(row[i]) : json_text(row[i]);
    }
    list.push_back(std::move(object));
  }
  return list;
}

}  // namespace ksutil::tools
