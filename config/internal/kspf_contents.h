/* What the sources of KSPf share; private to the library. */
#ifndef KSUTIL_CONFIG_INTERNAL_KSPF_CONTENTS_H
#define KSUTIL_CONFIG_INTERNAL_KSPF_CONTENTS_H

#include <atomic>
#include <cerrno>
#include <new>
#include <string>

#include "config/internal/pf_document.h"
#include "config/kspf.h"
#include "core/register.h"

struct KSPf::Contents {
  std::atomic<long> owners{1};
  ksutil::PfDocument document;
};

namespace ksutil {

/* Runs one public function's body: no exception leaves it. */
template <class Body>
int kspf_guarded(const char *function, const Body &body) {
  try {
    return body();
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    ks_register_error(1, "KSPf::%s: malloc() error.\n", function);
    return -1;
  }
}

/* Reads a path; false with a message. */
inline bool kspf_path(const char *function, const std::string &text, PfPath &path) {
  std::string cause;
  if (parse_path(text, path, cause)) return true;
  ks_register_error(0, "KSPf::%s: Faulty path '%s': %s.\n", function, text.c_str(),
                    cause.c_str());
  return false;
}

/* Epoch seconds of a date text or a number. */
bool parse_time(const std::string &text, double &epoch);

/* One of the words of KS_ParseBoolean, without a message for any other. */
bool parse_boolean(const std::string &text, bool &value);

/* "a text", "a table" or "an array". */
const char *kind_name(int kind);

}  // namespace ksutil
#endif
