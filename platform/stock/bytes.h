/* bytes: converts numbers between the host's form and the machine-independent
 * big-endian form.
 *
 * m is the machine-independent form, h the host's; i 4-byte integers, d 8-byte and f
 * 4-byte IEEE floating-point numbers.  `n` values are converted; 0 or less does
 * nothing.  `from` may equal `to`; neither needs alignment; they must not overlap
 * otherwise. */
#ifndef KSUTIL_PLATFORM_STOCK_BYTES_H
#define KSUTIL_PLATFORM_STOCK_BYTES_H

#include "platform/stock/export.h"

extern "C" {
KSUTIL_API void mi2hi(const void *from, void *to, long n);
KSUTIL_API void hi2mi(const void *from, void *to, long n);
KSUTIL_API void md2hd(const void *from, void *to, long n);
KSUTIL_API void hd2md(const void *from, void *to, long n);
KSUTIL_API void mf2hf(const void *from, void *to, long n);
KSUTIL_API void hf2mf(const void *from, void *to, long n);
}  // extern "C"
#endif
