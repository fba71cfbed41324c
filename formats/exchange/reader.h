/* Reader: the events of one input, one after the other, in bounded memory. */
#ifndef KSUTIL_FORMATS_EXCHANGE_READER_H
#define KSUTIL_FORMATS_EXCHANGE_READER_H

#include <cstdint>
#include <string>
#include <vector>

#include "formats/exchange/records.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

class Reader {
 public:
  virtual ~Reader() = default;

  /* kRecord: `event` is the next one, with at least one origin.  kRefused: what stands at
   * line() cannot be used, for the reason in problem(); reading may go on.
   * kFailed: nothing more can be read; see problem(). */
  enum class Got { kRecord, kRefused, kEnd, kFailed };
  virtual Got next(Event &event) = 0;

  virtual std::int64_t line() const = 0;
  virtual const std::string &problem() const = 0;

  /* Values of the input that no record has a place for, in the order of first sight. */
  virtual std::vector<Unplaced> without_place() const { return {}; }
};

}  // namespace ksutil::exchange
#endif
