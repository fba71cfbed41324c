/* The boundary of plain functions, which no exception crosses. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_BOUNDARY_H
#define KSUTIL_PLATFORM_DB_INTERNAL_BOUNDARY_H

#include <exception>
#include <new>

#include "platform/elog/elog.h"

namespace ksutil::db {

/* work(), or `failure` with a message when it throws. */
template <class Result, class Work>
Result guarded(const char *who, Result failure, const Work &work) {
  try {
    return work();
  } catch (const std::bad_alloc &) {
    elog_log(1, "%s: malloc() error.\n", who);
  } catch (const std::exception &error) {
    elog_log(0, "%s: %s.\n", who, error.what());
  }
  return failure;
}

}  // namespace ksutil::db
#endif
