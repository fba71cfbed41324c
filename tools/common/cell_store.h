/* CellStore: keeps rows of texts until they are printed, in memory that is bounded: what is
 * beyond the bound goes to a temporary file without a name. */
#ifndef KSUTIL_TOOLS_COMMON_CELL_STORE_H
#define KSUTIL_TOOLS_COMMON_CELL_STORE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/stock/files.h"

namespace ksutil::tools {

class CellStore {
 public:
  /* `columns` cells make a row; at most `bytes` of them stay in memory. */
  explicit CellStore(std::size_t columns, std::size_t bytes = kBytes)
      : columns_(columns), bytes_(bytes) {}

  /* Adds a row.  When the file cannot be written, rows stay in memory. */
  void add(const std::vector<std::string> &cells);

  /* Calls visit(cells) for each row in the order of adding; throws std::runtime_error when
   * the file cannot be read. */
  void each(const std::function<void(const std::vector<std::string> &)> &visit) const;

 private:
  static constexpr std::size_t kBytes = std::size_t{16} << 20;

  bool spill();
  const char *take(const char *at, std::vector<std::string> &cells) const;

  std::size_t columns_, bytes_;
  std::string rows_;                  // each cell with its length in front
  std::vector<std::size_t> written_;  // bytes of each piece of whole rows in the file
  FileHandle file_;
  bool file_failed_ = false;
};

}  // namespace ksutil::tools
#endif
