/* MadeRows: keeps rows that are in no table, in blocks that are packed as they fill. */
#ifndef KSUTIL_EVENTS_READING_INTERNAL_MADE_ROWS_H
#define KSUTIL_EVENTS_READING_INTERNAL_MADE_ROWS_H

#include <cstddef>
#include <string_view>

#include "platform/db/row_text.h"

namespace ksutil::events {

/* A catalogue may have such a row for every origin.  Belongs to one thread; the texts may
 * be read by all. */
class MadeRows {
 public:
  MadeRows() = default;
  ~MadeRows() { finish(); }
  MadeRows(const MadeRows &) = delete;
  MadeRows &operator=(const MadeRows &) = delete;

  /* Keeps a row, which ends in its newline; throws std::bad_alloc. */
  db::RowText add(std::string_view row);

 private:
  void finish() noexcept;

  db::BlockPtr block_;    // blocks double, since most readings make few rows
  std::size_t used_ = 0;  // bytes of block_
  std::size_t last_ = 0;  // length of the last row
};

}  // namespace ksutil::events
#endif
