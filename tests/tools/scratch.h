/* A scratch folder and the running of programs in it. */
#ifndef KSUTIL_TESTS_TOOLS_SCRATCH_H
#define KSUTIL_TESTS_TOOLS_SCRATCH_H

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#include "tests/support/folder.h"

namespace ksutil::tools {

using ScratchFolder = test::TempFolder;

inline std::string read_text(const std::string &path) { return test::read_file(path); }

struct ProgramRun {
  int code = -1;
  std::string output, errors;
};

/* Runs a command line and keeps what it writes. */
inline ProgramRun run_program(const std::string &command) {
  const ScratchFolder folder;
  const std::string errors = folder / "errors";
  ProgramRun run;
  FILE *pipe = popen((command + " 2>" + errors).c_str(), "r");
  if (pipe == nullptr) return run;
  std::array<char, 4096> buffer{};
  for (std::size_t n; (n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
    run.output.append(buffer.data(), n);
  }
  const int status = pclose(pipe);
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.errors = read_text(errors);
  return run;
}

}  // namespace ksutil::tools
#endif
