#include "platform/db/row_text.h"

#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <ostream>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "platform/db/internal/packed_rows.h"

namespace ksutil::db {

/* The copies that with_nul and keep have made, by offset and length. */
struct BlockPtr::Copies {
  std::mutex lock;
  std::unordered_map<std::uint64_t, std::unique_ptr<char[]>> texts;
};

namespace {

/* Blocks of fewer bytes are not worth packing. */
constexpr std::size_t kLeastPacked = 4096;

}  // namespace

BlockPtr BlockPtr::make_in_place(std::size_t size, std::uint32_t bits) {
  BlockPtr made;
  void *const memory = ::operator new(sizeof(Header) + size);
  made.header_ = new (memory) Header{{1}, {bits | kInPlace | kKept}, size, {nullptr}};
  return made;
}

BlockPtr BlockPtr::make(std::size_t size) {
  if (size < kLeastPacked) return make_in_place(size, 0);
  auto header = std::make_unique<RowsHeader>();
  header->references = 1;
  header->size = size;
  header->raw = static_cast<char *>(::operator new(size));
  BlockPtr made;
  made.header_ = header.release();
  return made;
}

BlockPtr BlockPtr::make_of_texts(std::size_t size) {
  return make_in_place(size, kTexts);
}

void BlockPtr::destroy(Header *header) noexcept {
  delete header->copies.load(std::memory_order_acquire);
  if ((header->users.load(std::memory_order_relaxed) & kInPlace) != 0) {
    header->~Header();
    ::operator delete(header);
    return;
  }
  auto *const rows = static_cast<RowsHeader *>(header);
  delete rows->packed.load(std::memory_order_acquire);
  ::operator delete(rows->raw);
  delete rows;
}

void BlockPtr::pack() const noexcept {
  if (header_ == nullptr || is(kInPlace)) return;
  RowsHeader &header = rows();
  if (header.raw == nullptr || header.incompressible || is(kKept) ||
      header.packed.load(std::memory_order_relaxed) != nullptr) {
    return;
  }
  try {
    auto packed = PackedRows::pack({header.raw, header.size});
    header.incompressible = packed == nullptr;
    header.packed.store(packed.release());
  } catch (const std::bad_alloc &) {
    /* It stays as it is, and may be packed later. */
  }
}

bool BlockPtr::release_raw() const noexcept {
  if (header_ == nullptr || is(kInPlace)) return false;
  RowsHeader &header = rows();
  if (header.raw == nullptr) return true;
  pack();
  if (header.packed.load(std::memory_order_relaxed) == nullptr) return false;
  /* A reader that counts itself after this look finds the packed rows. */
  if (header.users.load() != 0) return false;
  ::operator delete(std::exchange(header.raw, nullptr));
  return true;
}

void BlockPtr::restore_raw() const {
  if (raw() != nullptr) return;
  RowsHeader &header = rows();
  char *const restored = static_cast<char *>(::operator new(header.size));
  header.packed.load(std::memory_order_relaxed)->unpack(0, header.size, restored);
  header.raw = restored;
}

const char *BlockPtr::keep(std::uint32_t offset, std::uint32_t length) const {
  header_->users.fetch_add(1);
  const bool packed = rows().packed.load() != nullptr;
  if (!packed) header_->users.fetch_or(kKept);
  header_->users.fetch_sub(1);
  return packed ? copy_with_nul(offset, length) : raw() + offset;
}

const char *BlockPtr::copy_with_nul(std::uint32_t offset, std::uint32_t length) const {
  Copies *copies = header_->copies.load(std::memory_order_acquire);
  if (copies == nullptr) {
    auto made = std::make_unique<Copies>();
    if (header_->copies.compare_exchange_strong(copies, made.get())) {
      copies = made.release();
    }
  }
  const std::lock_guard hold(copies->lock);
  std::unique_ptr<char[]> &copy =
      copies->texts[static_cast<std::uint64_t>(offset) << 32 | length];
  if (copy == nullptr) {
    const PieceReading piece(*this, offset, length);
    auto made = std::make_unique_for_overwrite<char[]>(std::size_t{length} + 1);
    std::memcpy(made.get(), piece.text().data(), length);
    made[length] = '\0';
    copy = std::move(made);
  }
  return copy.get();
}

BlockPtr::PieceReading::PieceReading(const BlockPtr &block, std::uint32_t offset,
                                     std::uint32_t length) {
  if (length == 0) return;
  if (block.is(kKept)) {
    text_ = {block.raw() + offset, length};
    return;
  }
  RowsHeader &header = block.rows();
  const PackedRows *packed = header.packed.load(std::memory_order_acquire);
  if (packed == nullptr) {
    header.users.fetch_add(1);
    packed = header.packed.load();
    if (packed == nullptr) {
      used_ = &header.users;
      text_ = {header.raw + offset, length};
      return;
    }
    header.users.fetch_sub(1, std::memory_order_release);
  }
  unpack(*packed, offset, length);
}

void BlockPtr::PieceReading::unpack(const PackedRows &packed, std::uint32_t offset,
                                    std::uint32_t length) {
  char *to = small_;
  if (length > sizeof small_) {
    large_ = std::make_unique_for_overwrite<char[]>(length);
    to = large_.get();
  }
  packed.unpack(offset, length, to);
  text_ = {to, length};
}

RowText::RowText(std::string_view text) {
  if (text.empty()) return;
  check_length(text.size());
  block_ = BlockPtr::make_of_texts(text.size() + 1);
  block_.fill()[text.copy(block_.fill(), text.size())] = '\0';
  length_ = static_cast<std::uint32_t>(text.size());
}

void RowText::check_length(std::size_t length) {
  if (length > std::numeric_limits<std::uint32_t>::max()) {
    throw std::length_error("RowText");
  }
}

std::ostream &operator<<(std::ostream &out, const RowText &text) {
  return out << RowText::Reading(text).text();
}

}  // namespace ksutil::db
