/* record_sizes: computes the bytes of records with their texts and all that they own.
 * A text that rows share is counted for each row. */
#ifndef KSUTIL_EVENTS_RECORDS_INTERNAL_RECORD_SIZES_H
#define KSUTIL_EVENTS_RECORDS_INTERNAL_RECORD_SIZES_H

#include <cstddef>

#include "core/Table.h"
#include "events/records.h"

namespace ksutil::events {

std::size_t bytes(const EVEvent &event);
std::size_t bytes(const EVDetection &detection);

template <class Record>
std::size_t bytes(const Table<Record> &records) {
  std::size_t sum = 0;
  for (const Record &record : records) sum += bytes(record);
  return sum;
}

}  // namespace ksutil::events
#endif
