/* params_words: splits texts into words. */
#include <cstdlib>
#include <cstring>

#include "core/params.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

using ksutil::fail;
using ksutil::fail_errno;

namespace {

/* Counts a word and makes room for it.  On failure the count stays raised, and the
 * words and the array are freed, because the caller cannot reach them any more. */
bool grow(int &argc, char **&argv) {
  const std::size_t bytes = static_cast<std::size_t>(argc + 1) * sizeof(char *);
  ++argc;
  void *const grown = argv == nullptr ? ks_malloc(bytes) : ks_realloc(argv, bytes);
  if (grown == nullptr) {
    elog_log(1, argv == nullptr ? "splitlist: malloc() error.\n"
                                : "splitlist: realloc() error.\n");
    freeargs(argc - 1, argv);
    argv = nullptr;
    return false;
  }
  argv = static_cast<char **>(grown);
  argv[argc - 1] = nullptr;
  return true;
}

}  // namespace

int splitlist(const char *string, int *argc, char ***argv) {
  return splitlistc(string, argc, argv, " \t");
}

int splitlistc(const char *string, int *argc, char ***argv, const char *delims) {
  if (string == nullptr || delims == nullptr) {
    return fail("splitlist", "A text and delimiters must be given");
  }
  const ksutil::MallocPtr<char> copy(ks_strdup(string));
  if (copy == nullptr) {
    return fail_errno("splitlist", "strdup() error");
  }
  *argc = 0;
  *argv = nullptr;
  char *rest = nullptr;
  for (char *word = strtok_r(copy.get(), delims, &rest); word != nullptr;
       word = strtok_r(nullptr, delims, &rest)) {
    if (!grow(*argc, *argv)) return -1;
    char *const kept = ks_strdup(word);
    if (kept == nullptr) {
      fail_errno("splitlist", "strdup() error");
      freeargs(*argc, *argv);
      *argc = 0;
      *argv = nullptr;
      return -1;
    }
    (*argv)[*argc - 1] = kept;
  }
  return 0;
}

void freeargs(int argc, char **argv) {
  if (argv == nullptr) return;
  for (int i = 0; i < argc; ++i) std::free(argv[i]);
  std::free(argv);
}
