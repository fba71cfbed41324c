/* check: kspf check. */
#include <cstdio>

#include "tools/common/rows.h"
#include "tools/kspf/commands.h"

namespace ksutil::tools {
namespace {

struct CheckOptions {
  std::string file, rules;
  bool search = false;
  Form form = Form::kText;
};

std::string line_text(const KSPf_Violation &violation) {
  return violation.line > 0 ? std::to_string(violation.line) : "";
}

/* "file:line: path: text", as compilers write, so that editors find the place. */
void print_lines(const Table<KSPf_Violation> &violations) {
  for (const KSPf_Violation &violation : violations) {
    const std::string line = line_text(violation);
    const std::string path = violation.path.empty() ? "" : violation.path + ": ";
    std::printf("%s%s%s: %s%s\n", violation.file.c_str(), line.empty() ? "" : ":",
                line.c_str(), path.c_str(), violation.text.c_str());
  }
}

int check(const CheckOptions &options) {
  KSPf rules, pf;
  KSPf_Constraint constraint;
  Table<KSPf_Violation> violations;
  if (rules.readFile(options.rules) != 0 || rules.readConstraint(constraint) != 0 ||
      !read_input(options.file, options.search, pf)) {
    return kFailure;
  }
  const int result = pf.check(constraint, violations);
  if (result < 0) return kFailure;
  if (options.form == Form::kText) {
    print_lines(violations);
  } else {
    Rows rows({{"file"}, {"line", true, true}, {"path"}, {"text"}}, options.form);
    for (const KSPf_Violation &violation : violations) {
      rows.add({violation.file, line_text(violation), violation.path, violation.text});
    }
    rows.print();
  }
  if (violations.size() >= kKSPfMaxViolations) {
    complain("more violations than these are not listed");
  }
  return result == 0 ? kOk : kFailure;
}

void describe_check(CLI::App &command, CheckOptions &options) {
  command.add_option("file", options.file, "Parameter file, - for standard input")
      ->required();
  command.add_option("--rules", options.rules, "Parameter file of the constraints")
      ->required();
  command.add_flag("--search", options.search,
                   "Look for the file along KSUTIL_PF_PATH");
  add_form_options(command, options.form);
}

}  // namespace

Command check_command() {
  return make_command<CheckOptions>(
      "check", "Lists what violates the constraints of a file",
      {"kspf check --rules data/settings/server.rules data/settings/server.pf"},
      describe_check, check);
}

}  // namespace ksutil::tools
