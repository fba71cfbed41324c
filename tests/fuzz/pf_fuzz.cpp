/* Parameter files: what is read is written as a text that reads as the same tree.
 * Words: platform/pf tests/fuzz/corpus/pf */
#include <cstdlib>
#include <memory>

#include "platform/pf/pf.h"
#include "platform/stock/memory.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {

struct PfDeleter {
  void operator()(Pf *pf) const { pffree(pf); }
};

std::unique_ptr<Pf, PfDeleter> compile(const char *text) {
  Pf *pf = nullptr;
  const int result = pfcompile(text, &pf);
  require((result == 0) == (pf != nullptr), "a tree comes with success alone");
  return std::unique_ptr<Pf, PfDeleter>(pf);
}

void read_input(std::string_view input) {
  const auto pf = compile(text_of(input).c_str());
  if (pf == nullptr) return;
  const MallocPtr<char> text(pf2string(pf.get()));
  const auto again = compile(text.get());
  require(again != nullptr && pfequal(pf.get(), again.get()) != 0,
          "a written tree reads as the same tree");
}

}  // namespace ksutil::fuzz
