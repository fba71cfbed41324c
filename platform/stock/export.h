/* Marks what the shared library exports; everything else is hidden. */
#ifndef KSUTIL_PLATFORM_STOCK_EXPORT_H
#define KSUTIL_PLATFORM_STOCK_EXPORT_H

#define KSUTIL_API __attribute__((visibility("default")))

/* Lets the compiler check a printf-like function: the places of its format and of its
 * first variable argument (0 for a va_list), from 1. */
#define KSUTIL_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))

#endif
