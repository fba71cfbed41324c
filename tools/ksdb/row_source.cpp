#include "tools/ksdb/row_source.h"

#include <memory>
#include <nlohmann/json.hpp>

#include "formats/exchange/text/csv_rows.h"
#include "formats/exchange/text/input.h"
#include "formats/exchange/text/text_lines.h"
#include "platform/stock/text.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

std::unique_ptr<exchange::Input> open_rows(const std::string &path) {
  std::string problem;
  auto input = exchange::Input::open(path, problem);
  if (input == nullptr) complain(problem);
  return input;
}

std::string place_of(const exchange::Input &input, std::int64_t line) {
  return input.name() + ":" + std::to_string(line);
}

/* The members of an object as values; `problem` is set when one is neither a text nor a
 * number. */
std::vector<FieldText> values_of_line(const std::string &line, std::string &problem) {
  const auto object = nlohmann::ordered_json::parse(line, nullptr, false);
  std::vector<FieldText> values;
  if (!object.is_object()) {
    problem = "the line is not a JSON object";
    return values;
  }
  for (const auto &[name, value] : object.items()) {
    if (value.is_string()) {
      values.push_back({name, value.get<std::string>()});
    } else if (value.is_null()) {
      values.push_back({name, ""});
    } else if (value.is_number()) {
      values.push_back({name, value.dump()});
    } else {
      problem = "the value of '" + name.substr(0, 60) + "' is neither text nor number";
      return values;
    }
  }
  return values;
}

}  // namespace

bool read_csv_rows(const std::string &path, const TakeRow &take) {
  using Got = exchange::CsvRows::Got;
  const auto input = open_rows(path);
  if (input == nullptr) return false;
  exchange::CsvRows rows(*input, ',');
  std::vector<std::string> names;
  std::vector<FieldText> values;
  for (;;) {
    const Got got = rows.next();
    const std::string place = place_of(*input, rows.line());
    if (got == Got::kEnd) break;
    if (got == Got::kFailed || (got == Got::kBad && names.empty())) {
      complain((got == Got::kBad ? place + ": " : "") + rows.problem());
      return false;
    }
    if (got == Got::kBad) {
      take(place, {}, rows.problem());
      continue;
    }
    if (names.empty()) {
      for (const std::string_view cell : rows.cells())
        names.emplace_back(trimmed(cell));
      continue;
    }
    values.clear();
    if (rows.cells().size() != names.size()) {
      take(place, {},
           rows.cells().size() < names.size() ? "too few columns" : "too many columns");
      continue;
    }
    for (std::size_t i = 0; i < names.size(); i++) {
      const std::string cell(rows.cells()[i]);
      if (!trimmed(cell).empty()) values.push_back({names[i], cell});
    }
    take(place, values, "");
  }
  if (!names.empty()) return true;
  complain(input->name() + " is empty");
  return false;
}

bool read_json_rows(const std::string &path, const TakeRow &take) {
  const auto input = open_rows(path);
  if (input == nullptr) return false;
  exchange::TextLines lines(*input);
  std::string line;
  while (lines.next(line)) {
    if (trimmed(line).empty()) continue;
    std::string problem;
    const std::vector<FieldText> values =
        line.size() >= exchange::TextLines::kMaxLine
            ? (problem = "the line is too long", std::vector<FieldText>())
            : values_of_line(line, problem);
    take(place_of(*input, lines.number()), values, problem);
  }
  if (lines.problem().empty()) return true;
  complain(lines.problem());
  return false;
}

}  // namespace ksutil::tools
