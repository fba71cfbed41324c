/* The library's error register: thin wrappers over the platform's elog, and the small
 * helpers that every class shares.
 *
 * ks_register_error is the ordinary way to record a failure; ks_complain prints the whole
 * register to standard error as well, ks_die ends the process.  `flag` 1 follows a failed
 * system call and adds the text of errno; else 0. */
#ifndef KSUTIL_CORE_REGISTER_H
#define KSUTIL_CORE_REGISTER_H

#include "platform/stock/export.h"

extern "C" {

KSUTIL_API void ks_register_error(int flag, const char *format, ...)
    KSUTIL_PRINTF(2, 3);
KSUTIL_API void ks_complain(int flag, const char *format, ...) KSUTIL_PRINTF(2, 3);
[[noreturn]] KSUTIL_API void ks_die(int flag, const char *format, ...)
    KSUTIL_PRINTF(2, 3);

/* Empties the register, of all threads' messages; returns how many there were. */
KSUTIL_API int ks_clear_register(int flag);

/* The register's text, new; the caller frees it. */
KSUTIL_API char *ks_elog_string(int flag);

/* Reads a boolean word: "t", "true", "y", "yes", "on", "1" store 1; "f", "false", "n",
 * "no", "off", "0" store 0; null and "" store -1 (not given).  Case matters.  0, or -1 with
 * a message and *result untouched for any other word. */
KSUTIL_API int KS_ParseBoolean(const char *value, int *result);

/* strcmp that takes nulls: two nulls are equal; one null gives 1 on either side, so this
 * is no order to sort by. */
KSUTIL_API int KS_Strcmp(const char *a, const char *b);

/* Makes ks_ptimes print; set it before threads start. */
KSUTIL_API extern int exec_times_debug;

/* A stopwatch for debugging, for one thread at a time: prints to standard output the
 * seconds since it was reset, the seconds since the call before, and the label (null:
 * none).  `reset` non-zero, and the first call, start it anew after an empty line. */
KSUTIL_API void ks_ptimes(const char *label, int reset);

}  // extern "C"

KSUTIL_API void ks_ptimes(char *label, int reset);

#endif
