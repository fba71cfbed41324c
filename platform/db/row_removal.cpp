#include "platform/db/row_removal.h"

#include <algorithm>

#include "platform/elog/failure.h"

namespace ksutil::db {

bool remove_rows(TableStore::Exclusive &locked, std::vector<long> records) {
  if (records.empty()) return true;
  auto *const removal = dynamic_cast<RowRemoval *>(&locked);
  if (removal == nullptr) {
    return fail("remove_rows", "The store of this table cannot remove rows");
  }
  std::sort(records.begin(), records.end());
  records.erase(std::unique(records.begin(), records.end()), records.end());
  return removal->remove(records);
}

bool remove_all_rows(Transaction &step, std::size_t table) {
  auto *const clearing = dynamic_cast<TableClearing *>(&step);
  if (clearing == nullptr) {
    return fail("remove_all_rows", "The store cannot remove rows in transactions");
  }
  return clearing->clear(table);
}

}  // namespace ksutil::db
