#include "formats/exchange/isf/isf_lines.h"

#include <algorithm>

#include "formats/exchange/text/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

void IsfLine::text(std::size_t first, std::size_t last, std::string_view text) {
  std::string kept = record_text(text);
  const std::size_t room = last - first + 1;
  if (kept.size() > room) {
    unplaced_.add("texts longer than their columns");
    /* Not in the middle of a character of UTF-8. */
    std::size_t end = room;
    while (end > 0 && (static_cast<unsigned char>(kept[end]) & 0xc0) == 0x80) end--;
    kept.resize(end);
  }
  if (kept.empty()) return;
  if (line_.size() < first - 1 + kept.size())
    line_.resize(first - 1 + kept.size(), ' ');
  line_.replace(first - 1, kept.size(), kept);
}

void IsfLine::right(std::size_t first, std::size_t last, std::string_view text) {
  const std::size_t room = last - first + 1;
  const std::size_t size = std::min(text.size(), room);
  this->text(last + 1 - size, last, text);
}

void IsfLine::letter(std::size_t column, char letter) {
  if (letter != ' ' && letter != '\0')
    text(column, column, std::string_view(&letter, 1));
}

void IsfLine::real(std::size_t first, std::size_t last, int decimals, double value) {
  const std::size_t room = last - first + 1;
  std::string best;
  for (int d = decimals; d <= 9; d++) {
    const std::string number = format_text("%.*f", d, value);
    if (number.size() > room) break;
    best = number;
    double written = 0.0;
    if (parse_real(number, written) && written == value) break;
  }
  for (int d = decimals - 1; d >= 0 && best.empty(); d--) {
    const std::string number = format_text("%.*f", d, value);
    if (number.size() <= room) best = number;
  }
  if (best.empty()) return unplaced_.add("numbers wider than their columns");
  /* What is rounded in this line is written like the number that a reader takes from it. */
  const std::size_t point = best.find('.');
  if (point != best.npos) {
    const std::size_t least = point + 1 + static_cast<std::size_t>(decimals);
    while (best.size() > least && best.back() == '0') best.pop_back();
  }
  if (best.find_first_of("123456789") == best.npos && best.front() == '-') {
    best.erase(0, 1);
  }
  right(first, last, best);
}

void IsfLine::count(std::size_t first, std::size_t last, std::int64_t value) {
  if (value < 0) return;
  const std::string number = std::to_string(value);
  if (number.size() > last - first + 1) {
    return unplaced_.add("numbers wider than their columns");
  }
  right(first, last, number);
}

std::string IsfLine::end() const { return std::string(right_trimmed(line_)) + "\n"; }

}  // namespace ksutil::exchange
