/* Rows of named columns, printed as an aligned table, CSV or JSON. */
#ifndef KSUTIL_TOOLS_COMMON_ROWS_H
#define KSUTIL_TOOLS_COMMON_ROWS_H

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ksutil::tools {

enum class Form { kText, kCsv, kJson };

/* Adds --json and --csv, which exclude each other. */
void add_form_options(CLI::App &command, Form &form);

/* How a column stands in a text table, and how its values stand in JSON. */
struct Column {
  std::string name;
  bool right = false;   // right-justified
  bool number = false;  // a number in JSON; the null text gives null
};

/* Collects rows and prints them to standard output at the end.  An empty cell is a
 * missing value: blank in a table and in CSV, null in JSON. */
class Rows {
 public:
  Rows(std::vector<Column> columns, Form form);
  void add(std::vector<std::string> cells);
  void print() const;

 private:
  void print_text() const;
  void print_csv() const;
  void print_json() const;

  std::vector<Column> columns_;
  Form form_;
  std::vector<std::vector<std::string>> rows_;
};

/* A number's text as JSON: an integer when it is one, a real, or null when empty. */
nlohmann::ordered_json json_number(const std::string &text);

}  // namespace ksutil::tools
#endif
