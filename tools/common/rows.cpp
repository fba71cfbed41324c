#include "tools/common/rows.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "platform/stock/text.h"
#include "tools/common/row_printer.h"

namespace ksutil::tools {
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
  RowPrinter printer(columns_, form_);
  for (const auto &row : rows_) printer.add(row);
  printer.finish();
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
