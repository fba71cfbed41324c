/* miniseed_codec: decodes and encodes the samples of records with libmseed. */
#ifndef KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_CODEC_H
#define KSUTIL_PLATFORM_TRACE_INTERNAL_MINISEED_CODEC_H

#include <cstdint>
#include <span>
#include <string>
#include <variant>

#include "platform/trace/internal/miniseed_record.h"

namespace ksutil {

using MiniseedSamples = std::variant<std::span<const std::int32_t>,
                                     std::span<const float>, std::span<const double>>;

/* Decodes one record after another. */
class MiniseedDecoder {
 public:
  MiniseedDecoder() = default;
  ~MiniseedDecoder();
  MiniseedDecoder(const MiniseedDecoder &) = delete;
  MiniseedDecoder &operator=(const MiniseedDecoder &) = delete;

  /* The samples of a record, which are valid until the next call; `bytes` holds
   * record.length bytes and is changed.  False, with messages of libmseed, for a damaged
   * record. */
  bool decode(const MiniseedRecord &record, std::string &bytes,
              MiniseedSamples &samples);

 private:
  void *state_ = nullptr;
};

/* Encodes samples without gaps and appends the records to `records`; false with messages.
 * Arguments as for miniseed_pack, and checked. */
bool encode_miniseed(const char *who, const MiniseedCodes &codes, double time,
                     double samprate,
                     std::variant<Segment::Floats, Segment::Counts> samples,
                     int record_length, std::string &records);

}  // namespace ksutil
#endif
