#include <array>
#include <cstdio>

#include "tools/kspf/commands.h"

namespace ksutil::tools {
namespace {

/* One byte more than a parameter file may have: enough to have the file refused. */
bool read_standard_input(std::string &text) {
  std::array<char, 65536> buffer{};
  while (text.size() <= kPfMaxBytes) {
    const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), stdin);
    if (n == 0) break;
    text.append(buffer.data(), n);
  }
  if (std::ferror(stdin) == 0) return true;
  complain("cannot read standard input");
  return false;
}

}  // namespace

bool read_input(const std::string &file, bool search, KSPf &pf) {
  if (search) return pf.read(file) == 0;
  if (file != "-") return pf.readFile(file) == 0;
  std::string text;
  return read_standard_input(text) && pf.readText(text, "(standard input)") == 0;
}

int write_output(const KSPf &pf, const std::string &file) {
  if (!file.empty()) return pf.write(file) == 0 ? kOk : kFailure;
  std::string text;
  if (pf.text(text) != 0) return kFailure;
  std::fwrite(text.data(), 1, text.size(), stdout);
  return kOk;
}

}  // namespace ksutil::tools
