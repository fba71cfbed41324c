/* options: adds the operands and options that the programs have in common, so that they
 * have the same names, texts and limits everywhere. */
#ifndef KSUTIL_TOOLS_COMMON_OPTIONS_H
#define KSUTIL_TOOLS_COMMON_OPTIONS_H

#include <CLI/CLI.hpp>
#include <climits>
#include <string>
#include <vector>

namespace ksutil::tools {

/* The operand that names a database: "path/name". */
void add_database(CLI::App &command, std::string &database);

/* The operand EVID: a whole number from 0 up. */
void add_evid(CLI::App &command, long &evid);

/* --limit N: at most N of `things` ("rows", "events"), N from 0 up. */
void add_limit(CLI::App &command, long &limit, const std::string &things);

/* -q, --quiet: no progress bar and no line about success. */
void add_quiet(CLI::App &command, bool &quiet);

/* --raw: values as they are stored, nulls and times too. */
void add_raw(CLI::App &command, bool &raw);

/* An option whose argument is a list with commas: it takes one argument, so that operands
 * may follow, and keeps commas within parentheses, brackets and quotes. */
CLI::Option *add_list(CLI::App &command, const std::string &name,
                      std::vector<std::string> &items, const std::string &description);

/* The items of a list at its commas, without blanks around them; commas within
 * parentheses, brackets and quotes are part of an item. */
std::vector<std::string> split_list(const std::string &list);

/* Accepts whole numbers from `low` up to `high`; the error names the bounds. */
CLI::Validator whole_number(long low, long high = LONG_MAX);

/* Accepts numbers from `low` up to `high`; the error names the bounds. */
CLI::Validator number_between(double low, double high);

}  // namespace ksutil::tools
#endif
