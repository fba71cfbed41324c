/* Many threads evaluate one program, and a subset evaluates it a million times: shared
 * state would mix up records, an allocation per record would cost more than the rest. */
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <thread>

#include "tests/platform/expr/expr_test_support.h"

namespace {
thread_local long allocations = 0;
}

[[gnu::noinline]] void *operator new(std::size_t size) {
  ++allocations;
  if (void *const block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept {
  std::free(block);
}

namespace ksutil::expr {
namespace {

TEST(Machine, DoesNotAllocatePerRecord) {
  const Row row = example_row();
  for (const char *text :
       {"lat > 30 && depth < 50", "distance(lat, lon, 35, -118)",
        "sta + '.' + lower(sta) =* 'T*n'", "sta =~ '^(T|B)[A-Z]+$'",
        "substr(text(evid), 1, 4)", "time > '2000-01-01' ? yearday(time) : 0"}) {
    const auto program = compile(text, row);
    ASSERT_NE(program, nullptr) << text;
    Workspace workspace;
    Value value;
    ASSERT_TRUE(program->evaluate(row, workspace, value));
    const long before = allocations;
    for (int i = 0; i < 100; ++i) program->evaluate(row, workspace, value);
    EXPECT_EQ(allocations, before) << text;
  }
}

TEST(Machine, ThreadsShareAProgram) {
  const Row names = example_row();
  const auto program = compile(
      "sta + '/' + text(nass) =~ '/7$' || nass % 7 == 0 && distance(lat, 0, 0, 0) >= 0",
      names);
  ASSERT_NE(program, nullptr);
  std::vector<std::thread> threads;
  std::vector<int> counts(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      Workspace workspace;
      for (int i = 0; i < 700; ++i) {
        Row row = example_row();
        row.set("nass", Value::of_integer(i));
        Value value;
        if (program->evaluate(row, workspace, value) && value.integer != 0) {
          ++counts[static_cast<std::size_t>(t)];
        }
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  /* 100 multiples of 7 below 700, and only the number 7 is wholly "7". */
  EXPECT_EQ(counts, std::vector<int>(4, 100));
}

}  // namespace
}  // namespace ksutil::expr
