/* rows: prints rows of named columns as an aligned table, CSV or JSON. */
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

/* One column.  CSV and JSON have its bare name; a text table shows the unit as well:
 * "depth/km". */
struct Column {
  std::string name;
  bool right = false;     // right-justified in a text table
  bool number = false;    // a number in JSON, null for a text that is not a number
  std::string unit = {};  // empty: no unit
  std::string heading =
      {};  // heading in a text table instead of a longer name; empty: the name
};

/* Collects rows and prints them at the end, as RowPrinter does. */
class Rows {
 public:
  Rows(std::vector<Column> columns, Form form);
  void add(std::vector<std::string> cells);
  bool empty() const { return rows_.empty(); }
  void print() const;

  /* An array with an object for each row. */
  nlohmann::ordered_json json() const;

 private:
  std::vector<Column> columns_;
  Form form_;
  std::vector<std::vector<std::string>> rows_;
};

/* The text of a number as JSON: an integer or a real; null if it is not a number. */
nlohmann::ordered_json json_number(const std::string &text);

/* A text as JSON, null when it is empty. */
nlohmann::ordered_json json_text(const std::string &text);

/* Prints a JSON value; bytes that are not UTF-8 are replaced.  indent -1: one line. */
void print_json(const nlohmann::ordered_json &value, int indent = 1);

}  // namespace ksutil::tools
#endif
