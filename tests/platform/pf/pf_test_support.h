/* What the tests of parameter files share. */
#ifndef KSUTIL_TESTS_PLATFORM_PF_PF_TEST_SUPPORT_H
#define KSUTIL_TESTS_PLATFORM_PF_PF_TEST_SUPPORT_H

#include <memory>
#include <string>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/pf/pf.h"
#include "platform/stock/memory.h"

struct PfFree {
  void operator()(Pf *pf) const { pffree(pf); }
};
using PfHandle = std::unique_ptr<Pf, PfFree>;

inline PfHandle compiled(const std::string &text) {
  Pf *pf = nullptr;
  pfcompile(text.c_str(), &pf);
  return PfHandle(pf);
}

inline std::string taken(char *text) {
  const ksutil::MallocPtr<char> owned(text);
  return owned == nullptr ? "(null)" : owned.get();
}

/* The texts of a new list, which is freed; a null item is "(null)". */
inline std::vector<std::string> texts_of(Tbl *list) {
  std::vector<std::string> texts;
  for (long i = 0; i < counttbl(list); ++i) {
    const void *item = gettbl(list, i);
    texts.emplace_back(item == nullptr ? "(null)" : static_cast<const char *>(item));
  }
  freetbl(list, nullptr);
  return texts;
}

#endif
