/* memory: allocates the blocks that plain functions hand out, and those whose lack they
 * must survive.
 *
 * The wrappers behave like the C functions of the same name and set errno to ENOMEM on
 * failure.  A test can make the n-th allocation through them fail. */
#ifndef KSUTIL_PLATFORM_STOCK_MEMORY_H
#define KSUTIL_PLATFORM_STOCK_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

#include "platform/stock/export.h"

extern "C" {

/* Makes the n-th allocation through the wrappers from now on fail, once (1: the next
 * one; 0 or less: none).  For tests; safe from any thread. */
KSUTIL_API void ks_test_fail_alloc(long n);

KSUTIL_API void *ks_malloc(std::size_t bytes);
KSUTIL_API void *ks_calloc(std::size_t count, std::size_t size);
KSUTIL_API void *ks_realloc(void *block, std::size_t bytes);
KSUTIL_API char *ks_strdup(const char *text);

}  // extern "C"

namespace ksutil {

struct FreeDeleter {
  void operator()(void *block) const { std::free(block); }
};

/* Base of classes whose objects are allocated through the wrappers: `new
 * (std::nothrow)` gives null when memory is short, and counts for
 * ks_test_fail_alloc. */
struct SeamAllocated {
  static void *operator new(std::size_t bytes, const std::nothrow_t &) noexcept {
    return ks_malloc(bytes);
  }
  static void operator delete(void *block, const std::nothrow_t &) noexcept {
    std::free(block);
  }
  static void operator delete(void *block) noexcept { std::free(block); }
};

/* Owns a malloced block until it is released into an out-argument. */
template <class T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;

}  // namespace ksutil
#endif
