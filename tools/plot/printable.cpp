#include <cstddef>

#include "tools/plot/canvas.h"

namespace ksutil::plot {
namespace {

/* Bytes of the UTF-8 sequence that begins at `at`; 0 when there is none. */
std::size_t sequence_length(const std::string &text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(at);
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xF0 && lead < 0xF5   ? 4
                             : lead >= 0xE0 && lead < 0xF0 ? 3
                             : lead >= 0xC2 && lead < 0xE0 ? 2
                                                           : 0;
  if (length == 0 || at + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; i++) {
    if ((byte(at + i) & 0xC0U) != 0x80U) return 0;
  }
  const unsigned second = byte(at + 1);
  /* Overlong forms, surrogates, and what lies beyond the last character. */
  if (lead == 0xE0 && second < 0xA0) return 0;
  if (lead == 0xED && second > 0x9F) return 0;
  if (lead == 0xF0 && second < 0x90) return 0;
  if (lead == 0xF4 && second > 0x8F) return 0;
  if (lead == 0xEF && second == 0xBF && byte(at + 2) >= 0xBE) return 0;
  return length;
}

}  // namespace

std::string printable(const std::string &text) {
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = sequence_length(text, i);
    const auto lead = static_cast<unsigned char>(text[i]);
    if (length == 0 || lead < 0x20 || lead == 0x7F) {
      result += lead == '\t' || lead == '\n' ? ' ' : '?';
      i++;
    } else {
      result.append(text, i, length);
      i += length;
    }
  }
  return result;
}

}  // namespace ksutil::plot
