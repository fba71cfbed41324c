/* export: marks the functions and classes that the shared library exports; all others
 * are hidden. */
#ifndef KSUTIL_PLATFORM_STOCK_EXPORT_H
#define KSUTIL_PLATFORM_STOCK_EXPORT_H

#define KSUTIL_API __attribute__((visibility("default")))

/* Lets the compiler check the calls of a printf-like function.  `text` and `first` are
 * the positions, from 1, of its format and of its first variable argument (0 for a
 * va_list). */
#define KSUTIL_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))

#endif
