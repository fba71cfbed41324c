#include "core/register.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

int exec_times_debug = 0;

void ks_register_error(int flag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  velog_log(flag, format, args);
  va_end(args);
}

void ks_complain(int flag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  velog_complain(flag, format, args);
  va_end(args);
}

void ks_die(int flag, const char *format, ...) {
  va_list args;
  va_start(args, format);
  velog_die(flag, format, args);
}

int ks_clear_register(int flag) { return elog_clear_register(flag); }

char *ks_elog_string(int flag) { return elog_string(flag); }

int KS_ParseBoolean(const char *value, int *result) {
  if (value == nullptr || *value == '\0') {
    *result = -1;
    return 0;
  }
  for (const char *word : {"t", "true", "y", "yes", "on", "1"}) {
    if (std::strcmp(value, word) == 0) {
      *result = 1;
      return 0;
    }
  }
  for (const char *word : {"f", "false", "n", "no", "off", "0"}) {
    if (std::strcmp(value, word) == 0) {
      *result = 0;
      return 0;
    }
  }
  ks_register_error(0, "KS_ParseBoolean: Unrecognized value '%s'\n", value);
  return -1;
}

int KS_Strcmp(const char *a, const char *b) {
  if (a == nullptr && b == nullptr) return 0;
  if (a == nullptr || b == nullptr) return 1;
  return std::strcmp(a, b);
}

void ks_ptimes(const char *label, int reset) {
  ks_ptimes(const_cast<char *>(label), reset);
}

void ks_ptimes(char *label, int reset) {
  static double ref = 0.0;
  static double last = 0.0;
  if (exec_times_debug == 0) return;
  const double now = std_now();
  if (reset != 0 || ref == 0.0) {
    ref = now;
    last = now;
    std::printf("\n");
  }
  const ksutil::ScopedCLocale c_locale;
  std::printf("%10.3f %10.3f: %s\n", now - ref, now - last,
              label == nullptr ? "" : label);
  last = now;
}
