/* suites: names the tests that every store has to pass. */
#ifndef KSUTIL_TESTS_PLATFORM_DB_CONFORMANCE_SUITES_H
#define KSUTIL_TESTS_PLATFORM_DB_CONFORMANCE_SUITES_H

#include "tests/platform/db/conformance/store_backend.h"

namespace ksutil::db::conformance {

class StoreRows : public StoreTest {};  // what is written, and what readers see of it
class StoreWriters : public StoreTest {};  // writers beside each other, steps, kills
class StoreHandles : public StoreTest {};  // the functions of db.h

}  // namespace ksutil::db::conformance

/* Runs all suites on one kind of store. */
#define KSUTIL_INSTANTIATE_STORE_TESTS(prefix, kind)                                \
  INSTANTIATE_TEST_SUITE_P(prefix, StoreRows, testing::Values(kind), kind_name);    \
  INSTANTIATE_TEST_SUITE_P(prefix, StoreWriters, testing::Values(kind), kind_name); \
  INSTANTIATE_TEST_SUITE_P(prefix, StoreHandles, testing::Values(kind), kind_name)

#endif
