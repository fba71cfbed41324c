/* FilteredRows: reads the records of a table or view for which conditions hold.
 *
 * Large tables are read in windows, in which two threads try the conditions. */
#ifndef KSUTIL_TOOLS_KSDB_FILTERED_ROWS_H
#define KSUTIL_TOOLS_KSDB_FILTERED_ROWS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/view_rows.h"
#include "platform/stock/shared_work.h"
#include "tools/ksdb/conditions.h"

namespace ksutil::tools {

class FilteredRows final : private db::RowTaker {
 public:
  /* `rows` outlives the object. */
  explicit FilteredRows(db::ViewRows &rows);

  /* As Conditions::compile. */
  int compile(Dbptr view, const std::vector<std::string> &texts);

  /* For the next record, record 0 first: 1, and its rows, which are valid until the next
   * call, when all conditions are true; 0 when one is false or null; -1 when the record
   * cannot be read or a condition that is reached has no value. */
  int next(const std::string_view *&found);

 private:
  /* A record of the window. */
  struct Verdict {
    std::int8_t accepted = kUntried;
    std::uint8_t sharer = 0;   // in whose texts the row is
    std::uint32_t place = 0;   // of an accepted row
    std::uint32_t length = 0;  // of an accepted row
  };
  static constexpr std::int8_t kUntried = 2;

  bool take(unsigned sharer, long first, std::size_t count,
            std::string_view rows) noexcept override;
  void open_window();

  db::ViewRows &rows_;
  const long window_records_;
  Conditions conditions_[kWorkSharers];
  std::string texts_[kWorkSharers];  // accepted rows
  std::vector<Verdict> window_;
  long first_ = 0, next_ = 0;  // of the window; the next record
  std::string_view found_;
};

}  // namespace ksutil::tools
#endif
