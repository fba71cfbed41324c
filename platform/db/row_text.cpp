#include "platform/db/row_text.h"

#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <ostream>
#include <stdexcept>
#include <unordered_map>

namespace ksutil::db {

/* The copies that with_nul has made, by offset and length. */
struct BlockPtr::Copies {
  std::mutex lock;
  std::unordered_map<std::uint64_t, std::unique_ptr<char[]>> texts;
};

BlockPtr BlockPtr::make(std::size_t size, bool of_texts) {
  BlockPtr made;
  made.header_ = new (::operator new(sizeof(Header) + size))
      Header{{1}, of_texts, size, {nullptr}};
  return made;
}

void BlockPtr::destroy(Header *header) noexcept {
  delete header->copies.load(std::memory_order_acquire);
  header->~Header();
  ::operator delete(header);
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
    copy = std::make_unique_for_overwrite<char[]>(std::size_t{length} + 1);
    std::memcpy(copy.get(), data() + offset, length);
    copy[length] = '\0';
  }
  return copy.get();
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
  return out << text.view();
}

}  // namespace ksutil::db
