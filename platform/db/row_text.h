/* The text of a database row, and the memory that rows share.
 *
 * A Block is an immutable piece of memory with a reference count, filled before it is
 * shared.  A RowText is a piece of a block: copying it copies no text, and it outlives
 * the table and the database that it came from. */
#ifndef KSUTIL_PLATFORM_DB_ROW_TEXT_H
#define KSUTIL_PLATFORM_DB_ROW_TEXT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "platform/stock/export.h"

namespace ksutil::db {

/* Handles to one Block; the last one frees it.  Counting is safe from any thread. */
class KSUTIL_API BlockPtr {
 public:
  BlockPtr() = default;
  /* A new block; throws std::bad_alloc. */
  static BlockPtr make(std::size_t size);

  BlockPtr(const BlockPtr &other) noexcept : header_(other.header_) { retain(); }
  BlockPtr(BlockPtr &&other) noexcept
      : header_(std::exchange(other.header_, nullptr)) {}
  BlockPtr &operator=(BlockPtr other) noexcept {
    std::swap(header_, other.header_);
    return *this;
  }
  ~BlockPtr() { release(); }

  explicit operator bool() const { return header_ != nullptr; }
  bool operator==(const BlockPtr &other) const { return header_ == other.header_; }
  std::size_t size() const { return header_ == nullptr ? 0 : header_->size; }
  /* Whether there are other handles to the block. */
  bool shared() const {
    return header_ != nullptr &&
           header_->references.load(std::memory_order_acquire) > 1;
  }
  const char *data() const { return reinterpret_cast<const char *>(header_ + 1); }
  /* Only before the block is shared. */
  char *fill() { return reinterpret_cast<char *>(header_ + 1); }

 private:
  struct Header {
    std::atomic<std::uint32_t> references;
    std::size_t size;
  };

  void retain() const noexcept {
    if (header_ != nullptr) header_->references.fetch_add(1, std::memory_order_relaxed);
  }
  void release() noexcept {
    if (header_ != nullptr &&
        header_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      destroy(header_);
    }
  }
  static void destroy(Header *header) noexcept;

  Header *header_ = nullptr;
};

/* A text that shares a block; reads, compares and prints as text. */
class KSUTIL_API RowText {
 public:
  RowText() = default;
  /* Copies the text into a block of its own. */
  RowText(std::string_view text);
  RowText(const std::string &text) : RowText(std::string_view(text)) {}
  RowText(const char *text) : RowText(std::string_view(text)) {}
  /* length bytes of `block` from `offset`; both below 4 GiB. */
  RowText(BlockPtr block, std::size_t offset, std::size_t length)
      : block_(std::move(block)),
        offset_(static_cast<std::uint32_t>(offset)),
        length_(static_cast<std::uint32_t>(length)) {}

  std::string_view view() const {
    return length_ == 0 ? std::string_view()
                        : std::string_view(block_.data() + offset_, length_);
  }
  operator std::string_view() const { return view(); }
  std::string str() const { return std::string(view()); }
  bool empty() const { return length_ == 0; }
  std::size_t size() const { return length_; }

  /* Copies texts into one new block, so that they no longer keep their old blocks alive.
   * for_each_text(fn) calls fn(RowText &) for each text, in the same order both times. */
  template <class ForEachText>
  static void gather(ForEachText for_each_text);

  /* Whether both show the same bytes of the same block, which makes them equal at once. */
  bool same_place(const RowText &other) const {
    return block_ == other.block_ && offset_ == other.offset_ &&
           length_ == other.length_;
  }
  friend bool operator==(const RowText &a, const RowText &b) {
    return a.same_place(b) || a.view() == b.view();
  }
  friend bool operator==(const RowText &a, std::string_view b) { return a.view() == b; }

 private:
  BlockPtr block_;
  std::uint32_t offset_ = 0;
  std::uint32_t length_ = 0;
};

template <class ForEachText>
void RowText::gather(ForEachText for_each_text) {
  std::size_t size = 0;
  for_each_text([&](const RowText &text) { size += text.size(); });
  if (size == 0) return;
  BlockPtr block = BlockPtr::make(size);
  char *const start = block.fill();
  std::size_t offset = 0;
  for_each_text([&](RowText &text) {
    if (text.empty()) return;
    const std::string_view bytes = text;
    std::memcpy(start + offset, bytes.data(), bytes.size());
    text = RowText(block, offset, bytes.size());
    offset += bytes.size();
  });
}

}  // namespace ksutil::db
#endif
