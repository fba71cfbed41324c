#include "tools/common/cli.h"

#include <errno.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "core/version.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"

namespace ksutil::tools {

int run(CLI::App &app, Action &action, int argc, char **argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return app.exit(error) == 0 ? kOk : kUsage;
  }
  int result = kFailure;
  try {
    result = action();
  } catch (const std::exception &error) {
    complain(error.what());
  } catch (const char *error) {
    complain(error);
  }
  if (result != kOk) print_register();
  /* What failed to be written before is not tried again by the last flush. */
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    complain("cannot write the output");
    result = kFailure;
  }
  return result;
}

void add_version(CLI::App &app) {
  app.set_version_flag("--version", app.get_name() + " " KSUTIL_VERSION);
}

void complain(const std::string &text) {
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, text.c_str());
}

void print_register() {
  const MallocPtr<char> text(elog_string(0));
  if (text == nullptr) return;
  std::string line;
  for (const char *at = text.get(); *at != '\0'; at++) {
    if (*at != '\n') {
      line += *at;
      continue;
    }
    complain(line);
    line.clear();
  }
  if (!line.empty()) complain(line);
  elog_clear_register(0);
}

}  // namespace ksutil::tools
