/* kspf_contents: the contents of a KSPf, and helpers of its sources. */
#ifndef KSUTIL_CONFIG_INTERNAL_KSPF_CONTENTS_H
#define KSUTIL_CONFIG_INTERNAL_KSPF_CONTENTS_H

#include <atomic>
#include <string>

#include "config/internal/pf_document.h"
#include "config/kspf.h"
#include "platform/elog/failure.h"

struct KSPf::Contents {
  std::atomic<long> owners{1};
  ksutil::PfDocument document;
};

namespace ksutil {

/* Reads a path; false with a message in the name of `who`. */
inline bool kspf_path(const char *who, const std::string &text, PfPath &path) {
  std::string cause;
  if (parse_path(text, path, cause)) return true;
  return fail(who, "Faulty path '%s': %s", text.c_str(), cause.c_str());
}

/* Reads epoch seconds from a date text or a number. */
bool parse_time(const std::string &text, double &epoch);

/* Reads one of the words of KS_ParseBoolean; registers nothing for other texts. */
bool parse_boolean(const std::string &text, bool &value);

/* "a text", "a table" or "an array". */
const char *kind_name(int kind);

}  // namespace ksutil
#endif
