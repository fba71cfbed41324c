/* IsfLine: puts values into the columns of one line of a bulletin. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_ISF_LINES_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_ISF_LINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

class IsfLine {
 public:
  /* Values wider than their columns count in `unplaced`, which must outlive this. */
  explicit IsfLine(UnplacedCounts &unplaced) : unplaced_(unplaced) {}

  /* Columns are counted from 1.  Text stands at the left of its columns, or at the right;
   * what is longer loses its end. */
  void text(std::size_t first, std::size_t last, std::string_view text);
  void right(std::size_t first, std::size_t last, std::string_view text);
  void letter(std::size_t column, char letter);
  /* A number of `decimals` places, or of more if it has them and they fit.  One that is
   * too wide leaves a blank. */
  void real(std::size_t first, std::size_t last, int decimals, double value);
  /* A count; a negative one leaves a blank. */
  void count(std::size_t first, std::size_t last, std::int64_t value);

  /* The line with its line break. */
  std::string end() const;

 private:
  UnplacedCounts &unplaced_;
  std::string line_;
};

}  // namespace ksutil::exchange
#endif
