/* PackedRows: packs a block of rows of one length; any row can be unpacked alone.
 *
 * A column is one character position of the rows.  A chunk of rows stores the columns in
 * which all its rows agree once.  Of each row it stores the other columns: two
 * neighbouring columns of digits in one byte, a column of few different characters in
 * the bits that number them.  All packed rows of a chunk have the same length, so that
 * the place of each is known. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_PACKED_ROWS_H
#define KSUTIL_PLATFORM_DB_INTERNAL_PACKED_ROWS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace ksutil::db {

/* Immutable: any number of threads may unpack at once. */
class PackedRows {
 public:
  /* The length of the rows is the place of the first newline; a last row may be
   * incomplete.  Null if `rows` has no newline in its first 8 KiB, or if packing saves
   * less than a quarter.  Throws std::bad_alloc. */
  static std::unique_ptr<const PackedRows> pack(std::string_view rows);

  /* Writes `count` bytes of the block from `offset` to `to`; nothing if they do not lie
   * inside the block. */
  void unpack(std::size_t offset, std::size_t count, char *to) const;

  /* The bytes of the block, and the bytes of memory that the packed ones take. */
  std::size_t size() const { return size_; }
  std::size_t memory() const {
    return sizeof *this + data_size_ + chunks_.size() * sizeof chunks_[0];
  }

 private:
  PackedRows(std::size_t size, std::size_t length) : size_(size), length_(length) {}
  void unpack_row(std::size_t row, char *to) const;

  std::size_t size_, length_;  // of the block and of a row
  std::size_t data_size_ = 0;
  std::unique_ptr<std::uint8_t[]> data_;  // the chunks, then the incomplete row
  std::vector<std::uint32_t> chunks_;     // where each begins in data_
};

}  // namespace ksutil::db
#endif
