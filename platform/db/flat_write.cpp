#include "platform/db/flat_table.h"
#include "platform/elog/elog.h"

namespace ksutil::db {

bool FlatTable::exclusively(const std::function<bool(Exclusive &)> &) {
  elog_log(0, "dbput: %s is open for reading only.\n", file_.path.c_str());
  return false;
}

}  // namespace ksutil::db
