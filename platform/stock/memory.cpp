#include "platform/stock/memory.h"

#include <atomic>
#include <cerrno>
#include <cstring>

namespace {

/* The number of allocations up to the one that fails; 0 or less: none fails. */
std::atomic<long> countdown{0};

bool must_fail() {
  /* Without a test only this load is executed, so that threads do not write to a shared
   * cache line. */
  if (countdown.load(std::memory_order_relaxed) <= 0) return false;
  return countdown.fetch_sub(1) == 1;
}

void *checked(void *block) {
  if (block == nullptr) errno = ENOMEM;
  return block;
}

}  // namespace

void ks_test_fail_alloc(long n) { countdown.store(n); }

/* A size of 0 asks for 1 byte, so that null always means failure. */
void *ks_malloc(std::size_t bytes) {
  return checked(must_fail() ? nullptr : std::malloc(bytes == 0 ? 1 : bytes));
}

void *ks_calloc(std::size_t count, std::size_t size) {
  if (count == 0 || size == 0) count = size = 1;
  return checked(must_fail() ? nullptr : std::calloc(count, size));
}

void *ks_realloc(void *block, std::size_t bytes) {
  return checked(must_fail() ? nullptr : std::realloc(block, bytes == 0 ? 1 : bytes));
}

char *ks_strdup(const char *text) {
  const std::size_t bytes = std::strlen(text) + 1;
  void *copy = ks_malloc(bytes);
  if (copy != nullptr) std::memcpy(copy, text, bytes);
  return static_cast<char *>(copy);
}
