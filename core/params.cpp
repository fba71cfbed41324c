#include "core/params.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/elog/failure.h"
#include "platform/stock/memory.h"
#include "platform/stock/nearest_float.h"

using ksutil::fail;
using ksutil::fail_errno;
using ksutil::nearest_float;

namespace {

template <class T>
int store(void *dest, T value) {
  *static_cast<T *>(dest) = value;
  return 0;
}

int needed_kind(int type) {
  if (type >= P_TBL && type <= P_TBLPF) return PFTBL;
  if (type >= P_ARR && type <= P_ARRPF) return PFARR;
  return PFSTRING;
}

int missing(const char *name, int kind) {
  const char *const noun = kind == PFTBL   ? "table"
                           : kind == PFARR ? "array"
                                           : "parameter";
  return fail("parse_param", "Cannot find '%s' %s", name, noun);
}

int parse_integer_param(const char *name, const char *text, int type, void *dest) {
  char *end = nullptr;
  errno = 0;
  const long number = std::strtol(text, &end, 0);
  if (end == text) {
    fail_errno("parse_param", "strtol(%s) error", text);
    return fail_errno("parse_param", "Unable to parse integer value for %s", name);
  }
  if (type == P_SHORT) return store(dest, static_cast<short>(number));
  return store(dest, static_cast<int>(number));
}

int copy_string_param(const char *text, void *dest) {
  char *const copy = ks_strdup(text);
  if (copy == nullptr) {
    return fail_errno("parse_param", "strdup(%s) error", text);
  }
  return store(dest, copy);
}

/* Lenient on purpose: an unknown word counts as true. */
int is_true(const char *text) {
  if (std::strcmp(text, "0") == 0) return 0;
  for (const char *word : {"n", "no", "f", "false"}) {
    if (strcasecmp(text, word) == 0) return 0;
  }
  return 1;
}

int parse_text_param(Pf *pf, const char *name, char *text, int type, void *dest) {
  switch (type) {
    case P_SHORT:
    case P_INT:
      return parse_integer_param(name, text, type, dest);
    case P_FLOAT:
      return store(dest, nearest_float(pfget_double(pf, name)));
    case P_DOUBLE:
      return store(dest, pfget_double(pf, name));
    case P_STRING:
      return copy_string_param(text, dest);
    case P_BOOL:
      return store(dest, is_true(text));
    default:
      std::strcpy(static_cast<char *>(dest), text);
      return 0;
  }
}

/* Stores a list or map made by `function`, which is null when memory was short. */
template <class T>
int store_made(const char *function, const char *name, T *made, void *dest) {
  if (made == nullptr) {
    return fail_errno("parse_param", "%s(%s) error", function, name);
  }
  return store(dest, made);
}

int store_block_param(Pf *pf, const char *name, Pf *block, int type, void *dest) {
  switch (type) {
    case P_TBL:
      return store_made("pf_tbl", name, pf_tbl(block), dest);
    case P_TBLCOPY:
      return store_made("pfget_tbl", name, pfget_tbl(pf, name), dest);
    case P_ARR:
      return store_made("pf_arr", name, pf_arr(block), dest);
    case P_ARRCOPY:
      return store_made("pfget_arr", name, pfget_arr(pf, name), dest);
    default:
      return store(dest, block);
  }
}

}  // namespace

int parse_param(Pf *pf, const char *name, int type, int required, void *dest) {
  if (type < P_SHORT || type > P_STRCPY) {
    return fail("parse_param", "Illegal type value");
  }
  void *value = nullptr;
  const int kind = needed_kind(type);
  if (pfget(pf, name, &value) != kind) return required != 0 ? missing(name, kind) : 0;
  if (kind == PFSTRING) {
    return parse_text_param(pf, name, static_cast<char *>(value), type, dest);
  }
  return store_block_param(pf, name, static_cast<Pf *>(value), type, dest);
}

int pf2struc(Pf *pf, int n, const Pf2StrucMember *members, void *base) {
  for (int i = 0; i < n; ++i) {
    const Pf2StrucMember &member = members[i];
    void *const dest = static_cast<char *>(base) + member.offset;
    if (parse_param(pf, member.name, member.type, member.required, dest) < 0) {
      return fail("pf2struc", "parse_param(%s) error", member.name);
    }
  }
  return 0;
}
