#include "platform/db/row_text.h"

#include <cstring>
#include <new>

namespace ksutil::db {

BlockPtr BlockPtr::make(std::size_t size) {
  BlockPtr made;
  made.header_ = new (::operator new(sizeof(Header) + size)) Header{{1}, size};
  return made;
}

void BlockPtr::destroy(Header *header) noexcept {
  header->~Header();
  ::operator delete(header);
}

RowText::RowText(std::string_view text) {
  if (text.empty()) return;
  block_ = BlockPtr::make(text.size());
  std::memcpy(block_.fill(), text.data(), text.size());
  length_ = static_cast<std::uint32_t>(text.size());
}

}  // namespace ksutil::db
