#include "platform/stock/verbose.h"

#include <atomic>

namespace {
std::atomic<int> verbose{0};
}

int verbose_exists(void) { return verbose.load(std::memory_order_relaxed); }

void set_verbose(int on) { verbose.store(on != 0, std::memory_order_relaxed); }
