/* Rows of a table as they are kept packed in memory: any stretch of them is given back as
 * it was. */
#include <string>

#include "platform/db/internal/packed_rows.h"
#include "tests/fuzz/subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  const auto packed = db::PackedRows::pack(input);
  if (packed == nullptr) return;
  require(packed->size() == input.size(), "all bytes are packed");
  require(packed->memory() < input.size() + 4096, "packing saves memory");
  std::string back(input.size(), '\0');
  packed->unpack(0, input.size(), back.data());
  require(back == input, "the block is given back");
  /* Some hundred stretches that begin and end anywhere, in steps that follow from the
   * input. */
  const std::size_t step =
      1 + input.size() / 200 + static_cast<unsigned char>(input.front()) % 97;
  for (std::size_t from = 0; from < input.size(); from += step) {
    const std::size_t count = (from * step) % 301;
    std::string part(count, '?');
    packed->unpack(from, count, part.data());
    const bool inside = count <= input.size() - from;
    require(part == (inside ? input.substr(from, count) : std::string(count, '?')),
            "a stretch is given back, and nothing beyond the block");
  }
}
