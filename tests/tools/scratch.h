/* A scratch folder and the running of programs in it. */
#ifndef KSUTIL_TESTS_TOOLS_SCRATCH_H
#define KSUTIL_TESTS_TOOLS_SCRATCH_H

#include <stdlib.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace ksutil::tools {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = std::filesystem::temp_directory_path() / "ksutil-tools-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(const ScratchFolder &) = delete;
  ScratchFolder &operator=(const ScratchFolder &) = delete;

  std::string operator/(const std::string &name) const { return path_ + "/" + name; }
  std::string write(const std::string &name, const std::string &text) const {
    std::ofstream(*this / name, std::ios::binary) << text;
    return *this / name;
  }

 private:
  std::string path_;
};

inline std::string read_text(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

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
