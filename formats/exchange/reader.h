/* Reader: the events of one input, one after the other, in bounded memory. */
#ifndef KSUTIL_FORMATS_EXCHANGE_READER_H
#define KSUTIL_FORMATS_EXCHANGE_READER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/exchange/input.h"
#include "formats/exchange/kind.h"
#include "formats/exchange/records.h"

namespace ksutil::exchange {

class Reader {
 public:
  virtual ~Reader() = default;

  /* kRecord: `event` is the next one, with at least one origin.  kRefused: what stands at
   * line() cannot be used, for the reason that problem() tells; reading may go on.
   * kFailed: nothing more can be read; problem() tells. */
  enum class Got { kRecord, kRefused, kEnd, kFailed };
  virtual Got next(Event &event) = 0;

  virtual std::int64_t line() const = 0;
  virtual const std::string &problem() const = 0;

  /* Names of what the input has and no record has a place for. */
  virtual std::vector<std::string> without_place() const { return {}; }
};

/* The reader of a kind; the input must outlive it.  Null, with `problem` set, when the
 * kind is not read or the input lacks what its kind must have. */
std::unique_ptr<Reader> open_reader(Input &input, const Recognised &kind,
                                    std::string &problem);

}  // namespace ksutil::exchange
#endif
