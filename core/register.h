/* register: the library's error register, a thin layer over the platform's elog, and
 * small helpers that all classes share.
 *
 * ks_register_error is the ordinary way to record a failure; ks_complain prints the
 * whole register to standard error as well, ks_die ends the process.  `flag` 1 follows
 * a failed system call and adds the text of errno; it is 0 otherwise. */
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
 * "no", "off", "0" store 0; null and "" store -1 (not given).  Case matters.  0, or -1
 * with a message and *result untouched for any other word. */
KSUTIL_API int KS_ParseBoolean(const char *value, int *result);

/* strcmp for texts that may be null: two nulls are equal; one null gives 1 on either
 * side, so this function does not define an order and must not be used for sorting. */
KSUTIL_API int KS_Strcmp(const char *a, const char *b);

/* Non-zero makes ks_ptimes print; set it before threads start. */
KSUTIL_API extern int exec_times_debug;

/* A stopwatch for debugging, for one thread at a time.  Prints to standard output the
 * seconds since the stopwatch was reset, the seconds since the previous call, and the
 * label (nothing for null).  The first call, and a call with `reset` non-zero, print an
 * empty line and reset the stopwatch. */
KSUTIL_API void ks_ptimes(const char *label, int reset);

}  // extern "C"

KSUTIL_API void ks_ptimes(char *label, int reset);

#endif
