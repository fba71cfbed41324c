/* RowText: the text of a database row, in memory that rows share.
 *
 * A RowText is a piece of an immutable, reference-counted Block: copying it copies no
 * text, and it outlives the table and the database that it came from.  It does for its
 * users what a const std::string does: it compares, prints, concatenates, hashes and
 * converts.
 *
 * A block of rows may be packed, and its rows are then unpacked one by one when they are
 * read.  Members that give a value (comparison, search, copy, str(), hash, printing) and
 * read() keep nothing.  Members that give a pointer or a view (view(), begin(), c_str(),
 * the conversion to std::string_view) make the text last as long as its block, which
 * costs memory for each text of a packed block: use read() for many rows.
 *
 * Threads: as of std::string, a RowText that no thread changes may be read by several,
 * also by c_str(); and different RowTexts of one block may be changed and freed by
 * different threads, also while the table's thread packs the block.
 * Errors: reading a packed text may throw std::bad_alloc. */
#ifndef KSUTIL_PLATFORM_DB_ROW_TEXT_H
#define KSUTIL_PLATFORM_DB_ROW_TEXT_H

#include <atomic>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/stock/export.h"

namespace ksutil::db {

class PackedRows;

/* Handles to one Block of memory; the last handle frees it.  Bytes that a RowText shows
 * are never changed.  Counting is safe from any thread.
 *
 * data(), fill(), release_raw() and restore_raw() belong to the one thread that fills
 * the block (the thread of the database handle); RowTexts may be read by others at the
 * same time. */
class KSUTIL_API BlockPtr {
 public:
  BlockPtr() = default;
  /* A new block of `size` bytes for rows of a table; throws std::bad_alloc. */
  static BlockPtr make(std::size_t size);
  /* The same for texts with a NUL behind each, all of which are filled in at once. */
  static BlockPtr make_of_texts(std::size_t size);

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
  /* The bytes of the rows, packed or not. */
  std::size_t size() const { return header_ == nullptr ? 0 : header_->size; }
  /* Whether there are other handles to the block, or copies of pieces of it. */
  bool shared() const { return shared_beyond(1); }
  /* The raw bytes; null after release_raw() has given them up. */
  const char *data() const { return raw(); }
  /* For bytes that no RowText shows yet, or all of them when the block is not
   * shared(); not for a block for which release_raw() was ever called. */
  char *fill() { return raw(); }

  /* Gives up the raw bytes after packing them; the block stays readable through
   * RowText, and data() is null from then on.  All bytes must have been filled in.
   * Returns whether the raw bytes are gone.  They stay, and false is returned, for a
   * null block, while another thread reads them (a later call may succeed), and for
   * good when a pointer to them was given away (view() of a text), in a block of texts
   * or of less than 4 KiB, and when packing would save less than a quarter.  A packed
   * block keeps its packed bytes: the next call costs nothing. */
  bool release_raw() const noexcept;
  /* Does the long part of release_raw(), which then takes no time: packs the block.  One
   * thread may do so in place of the one that fills the block, which waits for it. */
  void pack() const noexcept;
  /* Whether texts, or handles beyond `handles`, hold the block. */
  bool shared_beyond(std::uint32_t handles) const {
    return header_ != nullptr &&
           (header_->references.load(std::memory_order_acquire) > handles ||
            header_->copies.load(std::memory_order_acquire) != nullptr);
  }
  /* Makes data() point to the raw bytes again, until the next release_raw().  Throws
   * std::bad_alloc. */
  void restore_raw() const;

  /* A piece of a block that is not null, which lasts as long as the block.  Safe from
   * any thread; throws std::bad_alloc. */
  const char *lasting(std::uint32_t offset, std::uint32_t length) const {
    return is(kKept) ? raw() + offset : keep(offset, length);
  }
  /* The same with a NUL behind it: the piece itself in a block of texts, else a copy,
   * made once, that the block keeps until it is freed (what follows a row in its block
   * may change at any time). */
  const char *with_nul(std::uint32_t offset, std::uint32_t length) const {
    if (is(kTexts) && std::size_t{offset} + length < header_->size) {
      const char *const piece = raw() + offset;
      if (piece[length] == '\0') return piece;
    }
    return copy_with_nul(offset, length);
  }

  /* PieceReading: shows one thread a piece of a block for as long as the PieceReading
   * lives: in place, or unpacked into it. */
  class KSUTIL_API PieceReading {
   public:
    /* The block, not null unless `length` is 0, must outlive the PieceReading.  Throws
     * std::bad_alloc. */
    PieceReading(const BlockPtr &block, std::uint32_t offset, std::uint32_t length);
    ~PieceReading() {
      if (used_ != nullptr) used_->fetch_sub(1, std::memory_order_release);
    }
    PieceReading(const PieceReading &) = delete;
    PieceReading &operator=(const PieceReading &) = delete;
    std::string_view text() const { return text_; }

   private:
    void unpack(const PackedRows &packed, std::uint32_t offset, std::uint32_t length);

    std::atomic<std::uint32_t> *used_ = nullptr;  // counts this user of the raw bytes
    std::string_view text_;
    std::unique_ptr<char[]> large_;  // a piece that has no room in `small_`
    char small_[488];
  };

 private:
  struct Copies;
  struct Header {
    std::atomic<std::uint32_t> references;
    /* The bits below, and the number of threads that read the raw bytes now.  The raw
     * bytes are freed only after `packed` has been set and `users` has been seen to be
     * 0 after that; a reader counts itself before it looks whether there is `packed`. */
    std::atomic<std::uint32_t> users;
    std::size_t size;
    std::atomic<Copies *> copies;  // with a NUL; null until there is one
  };
  /* Of a block of rows that may be packed. */
  struct RowsHeader : Header {
    std::atomic<const PackedRows *> packed;  // null until the block is packed
    char *raw;                               // null once given up
    bool incompressible;
  };
  /* The raw bytes last as long as the block; they follow the header; a NUL stands
   * behind each text, also behind the last. */
  static constexpr std::uint32_t kKept = std::uint32_t{1} << 31,
                                 kInPlace = std::uint32_t{1} << 30,
                                 kTexts = std::uint32_t{1} << 29;

  RowsHeader &rows() const { return *static_cast<RowsHeader *>(header_); }
  bool is(std::uint32_t bit) const {
    return (header_->users.load(std::memory_order_acquire) & bit) != 0;
  }
  char *raw() const {
    return is(kInPlace) ? reinterpret_cast<char *>(header_ + 1) : rows().raw;
  }

  void retain() const noexcept {
    if (header_ != nullptr) header_->references.fetch_add(1, std::memory_order_relaxed);
  }
  void release() noexcept {
    if (header_ != nullptr &&
        header_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      destroy(header_);
    }
  }
  static BlockPtr make_in_place(std::size_t size, std::uint32_t bits);
  static void destroy(Header *header) noexcept;
  const char *keep(std::uint32_t offset, std::uint32_t length) const;
  const char *copy_with_nul(std::uint32_t offset, std::uint32_t length) const;

  Header *header_ = nullptr;
};

class RowText;

/* The types that a RowText is compared and concatenated with: std::string,
 * std::string_view, const char *, a literal. */
template <class T>
concept OtherText = std::convertible_to<const T &, std::string_view> &&
    !std::same_as<std::remove_cvref_t<T>, RowText>;

class KSUTIL_API RowText {
 public:
  using value_type = char;
  using size_type = std::size_t;
  using const_iterator = const char *;
  using iterator = const_iterator;
  static constexpr std::size_t npos = std::string_view::npos;

  RowText() = default;
  /* Copy the text into a block of its own; null is an empty text.  Throw
   * std::bad_alloc, and std::length_error from 4 GiB on. */
  RowText(std::string_view text);
  RowText(const std::string &text) : RowText(std::string_view(text)) {}
  RowText(const char *text)
      : RowText(text == nullptr ? std::string_view() : std::string_view(text)) {}
  /* `length` bytes of `block` from `offset`, inside the block, both below 4 GiB. */
  RowText(BlockPtr block, std::size_t offset, std::size_t length)
      : block_(std::move(block)),
        offset_(static_cast<std::uint32_t>(offset)),
        length_(static_cast<std::uint32_t>(length)) {}

  RowText(const RowText &) noexcept = default;
  RowText &operator=(const RowText &) noexcept = default;
  /* A RowText that was moved from is empty. */
  RowText(RowText &&other) noexcept
      : block_(std::move(other.block_)),
        offset_(std::exchange(other.offset_, 0)),
        length_(std::exchange(other.length_, 0)) {}
  RowText &operator=(RowText &&other) noexcept {
    RowText taken(std::move(other));
    std::swap(block_, taken.block_);
    std::swap(offset_, taken.offset_);
    std::swap(length_, taken.length_);
    return *this;
  }
  ~RowText() = default;

  /* Reading: shows the text for as long as the Reading lives, and keeps nothing
   * afterwards.  The RowText must neither change nor end before it. */
  class Reading : public BlockPtr::PieceReading {
   public:
    explicit Reading(const RowText &text)
        : BlockPtr::PieceReading(text.block_, text.offset_, text.length_) {}
  };
  /* fn(std::string_view) of the text, and its result; the view is valid inside fn. */
  template <class Fn>
  decltype(auto) read(Fn fn) const {
    const Reading reading(*this);
    return fn(reading.text());
  }

  /* The text, valid while a RowText of the same block lives: in place, or a copy that a
   * packed block keeps.  Throws std::bad_alloc. */
  std::string_view view() const {
    return length_ == 0 ? std::string_view()
                        : std::string_view(block_.lasting(offset_, length_), length_);
  }
  operator std::string_view() const { return view(); }
  operator std::string() const { return str(); }
  std::string str() const { return std::string(Reading(*this).text()); }

  /* The text with a NUL behind it, valid while this RowText, or a copy of it, is
   * neither changed nor destroyed.  Texts made of a std::string, and gathered ones,
   * have the NUL in place; of a row inside the memory of its table a copy is made the
   * first time, which lives as long as that memory, so that read() is better for whole
   * tables.  Throws std::bad_alloc. */
  const char *c_str() const {
    return length_ == 0 ? "" : block_.with_nul(offset_, length_);
  }
  const char *data() const { return c_str(); }

  bool empty() const { return length_ == 0; }
  std::size_t size() const { return length_; }
  std::size_t length() const { return length_; }

  const_iterator begin() const { return view().data(); }
  const_iterator end() const { return view().data() + length_; }
  const_iterator cbegin() const { return begin(); }
  const_iterator cend() const { return end(); }
  auto rbegin() const { return std::make_reverse_iterator(end()); }
  auto rend() const { return std::make_reverse_iterator(begin()); }

  /* i < size(); as of std::string, size() is the place of a NUL.  One character costs
   * as much as the whole row: take read() for a loop. */
  char operator[](std::size_t i) const {
    return i == length_ ? '\0' : Reading(*this).text()[i];
  }
  /* Throws std::out_of_range. */
  char at(std::size_t i) const { return Reading(*this).text().at(i); }
  char front() const { return Reading(*this).text().front(); }
  char back() const { return Reading(*this).text().back(); }

  /* As of std::string. */
  std::string substr(std::size_t from = 0, std::size_t count = npos) const {
    return std::string(Reading(*this).text().substr(from, count));
  }
  std::size_t copy(char *to, std::size_t count, std::size_t from = 0) const {
    return Reading(*this).text().copy(to, count, from);
  }
  int compare(std::string_view other) const {
    return Reading(*this).text().compare(other);
  }
  bool starts_with(std::string_view text) const {
    return Reading(*this).text().starts_with(text);
  }
  bool starts_with(char c) const { return Reading(*this).text().starts_with(c); }
  bool ends_with(std::string_view text) const {
    return Reading(*this).text().ends_with(text);
  }
  bool ends_with(char c) const { return Reading(*this).text().ends_with(c); }
  std::size_t find(std::string_view text, std::size_t from = 0) const {
    return Reading(*this).text().find(text, from);
  }
  std::size_t find(char c, std::size_t from = 0) const {
    return Reading(*this).text().find(c, from);
  }
  std::size_t rfind(std::string_view text, std::size_t from = npos) const {
    return Reading(*this).text().rfind(text, from);
  }
  std::size_t rfind(char c, std::size_t from = npos) const {
    return Reading(*this).text().rfind(c, from);
  }
  std::size_t find_first_of(std::string_view set, std::size_t from = 0) const {
    return Reading(*this).text().find_first_of(set, from);
  }
  std::size_t find_first_not_of(std::string_view set, std::size_t from = 0) const {
    return Reading(*this).text().find_first_not_of(set, from);
  }
  std::size_t find_last_of(std::string_view set, std::size_t from = npos) const {
    return Reading(*this).text().find_last_of(set, from);
  }
  std::size_t find_last_not_of(std::string_view set, std::size_t from = npos) const {
    return Reading(*this).text().find_last_not_of(set, from);
  }

  /* Whether both are the same bytes of the same block, and therefore equal. */
  bool same_place(const RowText &other) const {
    return block_ == other.block_ && offset_ == other.offset_ &&
           length_ == other.length_;
  }
  friend bool operator==(const RowText &a, const RowText &b) {
    if (a.same_place(b)) return true;
    return a.length_ == b.length_ && Reading(a).text() == Reading(b).text();
  }
  friend std::strong_ordering operator<=>(const RowText &a, const RowText &b) {
    return Reading(a).text() <=> Reading(b).text();
  }
  template <OtherText Text>
  friend bool operator==(const RowText &a, const Text &b) {
    return Reading(a).text() == std::string_view(b);
  }
  template <OtherText Text>
  friend std::strong_ordering operator<=>(const RowText &a, const Text &b) {
    return Reading(a).text() <=> std::string_view(b);
  }

  friend std::string operator+(const RowText &a, const RowText &b) {
    return a.str().append(Reading(b).text());
  }
  template <OtherText Text>
  friend std::string operator+(const RowText &a, const Text &b) {
    return a.str().append(std::string_view(b));
  }
  template <OtherText Text>
  friend std::string operator+(const Text &a, const RowText &b) {
    return std::string(std::string_view(a)).append(Reading(b).text());
  }
  friend std::string operator+(const RowText &a, char b) { return a.str() + b; }
  friend std::string operator+(char a, const RowText &b) {
    return std::string(1, a).append(Reading(b).text());
  }

  /* Copies texts into one new block, each with a NUL behind it, so that they no longer
   * keep their old blocks in memory.  for_each_text(fn) calls fn(RowText &) for each
   * text, in the same order both times.  Throws std::bad_alloc, and std::length_error
   * from 4 GiB on; the texts are then as before. */
  template <class ForEachText>
  static void gather(ForEachText for_each_text);

 private:
  /* Throws std::length_error: offsets and lengths are kept in 32 bits. */
  static void check_length(std::size_t length);

  BlockPtr block_;
  std::uint32_t offset_ = 0;
  std::uint32_t length_ = 0;
};

template <class ForEachText>
void RowText::gather(ForEachText for_each_text) {
  std::size_t size = 0;
  for_each_text([&](const RowText &text) {
    if (!text.empty()) size += text.size() + 1;
  });
  if (size == 0) return;
  check_length(size);
  BlockPtr block = BlockPtr::make_of_texts(size);
  char *const start = block.fill();
  std::size_t offset = 0;
  for_each_text([&](RowText &text) {
    if (text.empty()) return;
    const std::size_t length = text.copy(start + offset, text.size());
    start[offset + length] = '\0';
    text = RowText(block, offset, length);
    offset += length + 1;
  });
}

/* Prints as a std::string does, width and fill included. */
KSUTIL_API std::ostream &operator<<(std::ostream &out, const RowText &text);

}  // namespace ksutil::db

/* The hash of an equal std::string or std::string_view. */
template <>
struct std::hash<ksutil::db::RowText> {
  std::size_t operator()(const ksutil::db::RowText &text) const {
    return std::hash<std::string_view>()(ksutil::db::RowText::Reading(text).text());
  }
};

#endif
