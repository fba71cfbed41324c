/* ksconfigure_parse: the parser of the built-in types of settings. */
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

#include "config/ksconfigure.h"
#include "core/register.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"

using ksutil::fail;
using ksutil::fail_errno;

namespace {

/* Members are copied as bytes, because a record may be packed. */
template <class T>
T member(const char *record, const KS_ConfigureSpec &spec) {
  T value;
  std::memcpy(&value, record + spec.offset, sizeof value);
  return value;
}

template <class T>
void store(char *record, const KS_ConfigureSpec &spec, T value) {
  std::memcpy(record + spec.offset, &value, sizeof value);
}

/* A member that stays NaN has not changed. */
template <class T>
int store_number(char *record, KS_ConfigureSpec &spec, T value) {
  const T old = member<T>(record, spec);
  if (old != value && (old == old || value == value)) {
    spec.flags |= KS_CONFIGURE_CHANGED;
  }
  store(record, spec, value);
  return 0;
}

const char *or_empty(const char *text) { return text == nullptr ? "" : text; }

/* Ends the process when the entry allows nulls, which its type cannot store, and the value
 * is one. */
void refuse_null_of(const char *type, const KS_ConfigureSpec &spec, const char *value) {
  if ((spec.flags & KS_CONFIGURE_NULL_OK) == 0 || *or_empty(value) != '\0') return;
  ks_die(0,
         "KS_ParseConfigValue: Cannot set KS_CONFIGURE_NULL_OK for %s value for %s.\n",
         type, or_empty(spec.name));
}

int parse_boolean(KS_ConfigureSpec &spec, char *value, char *record) {
  refuse_null_of("KS_CONFIGURE_BOOlEAN", spec, value);
  int result = -1;
  if (KS_ParseBoolean(value, &result) != 0) {
    return fail("KS_ParseConfigValue", "KS_ParseBoolean() error for %s",
                or_empty(spec.name));
  }
  return store_number(record, spec, result);
}

int parse_double(KS_ConfigureSpec &spec, char *value, char *record) {
  refuse_null_of("KS_CONFIGURE_DOUBLE", spec, value);
  const char *const text = or_empty(value);
  char *end = nullptr;
  const double number = fix_strtod(text, &end);
  if (end == text) {
    return fail("KS_ParseConfigValue",
                "Unable to parse KS_CONFIGURE_DOUBLE '%s' for %s", text,
                or_empty(spec.name));
  }
  return store_number(record, spec, number);
}

/* A text that does not begin with a number counts as 0; a text that does must have
 * nothing after the number. */
int parse_int(KS_ConfigureSpec &spec, char *value, char *record) {
  refuse_null_of("KS_CONFIGURE_INT", spec, value);
  const char *const text = or_empty(value);
  char *end = nullptr;
  errno = 0;
  const long number = std::strtol(text, &end, 0);
  const bool fits = errno != ERANGE && number >= std::numeric_limits<int>::min() &&
                    number <= std::numeric_limits<int>::max();
  if (!fits || (end != text && *end != '\0')) {
    return fail("KS_ParseConfigValue", "Unable to parse KS_CONFIGURE_INT '%s' for %s",
                text, or_empty(spec.name));
  }
  return store_number(record, spec, static_cast<int>(number));
}

bool refuses_null(const KS_ConfigureSpec &spec, const char *value) {
  if (value != nullptr || (spec.flags & KS_CONFIGURE_NULL_OK) != 0) return false;
  fail("KS_ParseConfigValue",
       "Cannot set NULL value if not KS_CONFIGURE_NULL_OK for %s", or_empty(spec.name));
  return true;
}

int parse_string(KS_ConfigureSpec &spec, char *value, char *record) {
  if (refuses_null(spec, value)) return -1;
  char *const copy = value == nullptr ? nullptr : ks_strdup(value);
  if (value != nullptr && copy == nullptr) {
    return fail_errno("KS_ParseConfigValue", "malloc() error for %s",
                      or_empty(spec.name));
  }
  char *const old = member<char *>(record, spec);
  if (KS_Strcmp(copy, old) != 0) spec.flags |= KS_CONFIGURE_CHANGED;
  store(record, spec, copy);
  std::free(old);
  return 0;
}

int parse_pointer(KS_ConfigureSpec &spec, char *value, char *record) {
  if (refuses_null(spec, value)) return -1;
  return store_number(record, spec, value);
}

int parse_custom(KS_ConfigureSpec &spec, char *value, char *record, void *client_data) {
  if (spec.custom == nullptr) {
    ks_die(0, "KS_ParseConfigValue: customPtr NULL for KS_CONFIGURE_CUSTOM for %s.\n",
           or_empty(spec.name));
  }
  if (spec.custom->parseProc == nullptr) {
    ks_die(0,
           "KS_ParseConfigValue: customPtr->parseProc NULL for KS_CONFIGURE_CUSTOM for "
           "%s.\n",
           or_empty(spec.name));
  }
  if (spec.custom->parseProc(&spec, spec.custom->clientData, value, record, spec.offset,
                             client_data) < 0) {
    return fail("KS_ParseConfigValue", "KS_CONFIGURE_CUSTOM error for %s",
                or_empty(spec.name));
  }
  return 0;
}

using MemberParser = int (*)(KS_ConfigureSpec &, char *, char *);

/* The parser of a type; null for types without a parser of their own here. */
MemberParser member_parser(std::string_view type) {
  if (type == "boolean") return parse_boolean;
  if (type == "double") return parse_double;
  if (type == "int") return parse_int;
  if (type == "string" || type == "uid") return parse_string;
  return type == "ptr" ? parse_pointer : nullptr;
}

}  // namespace

int KS_ParseConfigValue(KS_ConfigureSpec *spec, char *value, char *record,
                        void *client_data) {
  const std::string_view type = or_empty(spec->type);
  if (type == "custom") return parse_custom(*spec, value, record, client_data);
  if (type == "end") return 0;
  const MemberParser parse = member_parser(type);
  if (parse == nullptr) return 3;
  if (record != nullptr) return parse(*spec, value, record);
  return fail("KS_ParseConfigValue", "There is no record for %s", or_empty(spec->name));
}
