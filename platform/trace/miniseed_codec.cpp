#include "platform/trace/internal/miniseed_codec.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "platform/elog/failure.h"

#ifdef KSUTIL_MSEED
#include <libmseed.h>
#endif

namespace ksutil {

#ifdef KSUTIL_MSEED
namespace {

constexpr std::size_t kFixed = 48;   // bytes of the fixed header
constexpr std::size_t kDataAt = 64;  // where the data of a rebuilt record begin
/* Encodings of records that are written. */
constexpr std::uint8_t kWrittenInt32 = 3, kWrittenFloat32 = 4, kWrittenSteim2 = 11;

void log_message(char *text) { elog_log(0, "miniseed: %s", text); }

/* libmseed formats messages in one static buffer and keeps its settings in global
 * variables, which it fills from the environment when they are first needed.  They are
 * settled here, before any thread can race for them, and the lock is held whenever libmseed
 * may have something to say. */
std::mutex &libmseed() {
  static std::mutex mutex;
  static const bool settled = [] {
    constexpr flag kUnchecked = -2, kNone = -1;
    if (unpackheaderbyteorder == kUnchecked) MS_UNPACKHEADERBYTEORDER(kNone);
    if (unpackdatabyteorder == kUnchecked) MS_UNPACKDATABYTEORDER(kNone);
    if (unpackencodingformat == kUnchecked) MS_UNPACKENCODINGFORMAT(kNone);
    if (unpackencodingfallback == kUnchecked) MS_UNPACKENCODINGFALLBACK(kNone);
    if (packheaderbyteorder == kUnchecked) MS_PACKHEADERBYTEORDER(kNone);
    if (packdatabyteorder == kUnchecked) MS_PACKDATABYTEORDER(kNone);
    ms_loginit(log_message, "", log_message, "");
    return true;
  }();
  static_cast<void>(settled);
  return mutex;
}

struct FreeRecord {
  void operator()(MSRecord *record) const { msr_free(&record); }
};
using RecordPtr = std::unique_ptr<MSRecord, FreeRecord>;

void store16(char *to, std::uint16_t value, bool big) {
  if (big != (std::endian::native == std::endian::big))
    value = __builtin_bswap16(value);
  std::memcpy(to, &value, sizeof value);
}

/* Gives a record blockette 1000 as its only one, so that libmseed follows no chain of the
 * file's.  False for a record that would grow too long. */
bool rebuild(const MiniseedRecord &record, std::string &bytes) {
  std::size_t length = record.length;
  if (record.data_offset < kFixed + 8) {
    const std::size_t data = length - record.data_offset;
    length = std::bit_ceil(kDataAt + data);
    if (length > MAXRECLEN) return false;
    std::string longer(length, '\0');
    std::copy_n(bytes.data(), kFixed, longer.data());
    std::copy_n(bytes.data() + record.data_offset, data, longer.data() + kDataAt);
    store16(longer.data() + 44, kDataAt, record.big_header);
    bytes = std::move(longer);
  }
  bytes[39] = 1;  // blockettes
  store16(bytes.data() + 46, kFixed, record.big_header);
  char *const blockette = bytes.data() + kFixed;
  store16(blockette, 1000, record.big_header);
  store16(blockette + 2, 0, record.big_header);
  blockette[4] = static_cast<char>(record.encoding);
  blockette[5] = record.big_data ? 1 : 0;
  blockette[6] = static_cast<char>(std::countr_zero(length));
  blockette[7] = 0;
  return true;
}

/* Whether Steim 2 has room for all differences. */
bool fits_steim2(Segment::Counts samples) {
  constexpr std::int64_t kLimit = std::int64_t{1} << 29;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    const std::int64_t difference = std::int64_t{samples[i]} - samples[i - 1];
    if (difference >= kLimit || difference < -kLimit) return false;
  }
  return true;
}

void copy_code(char *to, const std::string &code) { to[code.copy(to, 10)] = '\0'; }

void collect(char *record, int length, void *records) {
  static_cast<std::string *>(records)->append(record, static_cast<std::size_t>(length));
}

/* Adds the blockettes that keep what the fixed header cannot: microseconds, and sample
 * rates that are not a ratio of small numbers. */
bool add_blockettes(MSRecord *msr) {
  blkt_1001_s timing{};
  if (msr_addblockette(msr, reinterpret_cast<char *>(&timing), sizeof timing, 1001,
                       0) == nullptr) {
    return false;
  }
  std::int16_t factor = 0, multiplier = 0;
  ms_genfactmult(msr->samprate, &factor, &multiplier);
  const double nominal = ms_nomsamprate(factor, multiplier);
  if (std::abs(nominal / msr->samprate - 1.0) < 1e-9) return true;
  blkt_100_s rate{};
  rate.samprate = static_cast<float>(msr->samprate);
  return msr_addblockette(msr, reinterpret_cast<char *>(&rate), sizeof rate, 100, 0) !=
         nullptr;
}

}  // namespace

bool miniseed_available() { return true; }

MiniseedDecoder::~MiniseedDecoder() {
  auto *msr = static_cast<MSRecord *>(state_);
  msr_free(&msr);
}

bool MiniseedDecoder::decode(const MiniseedRecord &record, std::string &bytes,
                             MiniseedSamples &samples) {
  if (!rebuild(record, bytes)) return false;
  auto *msr = static_cast<MSRecord *>(state_);
  const std::lock_guard lock(libmseed());
  const int result =
      msr_unpack(bytes.data(), static_cast<int>(bytes.size()), &msr, 1, 0);
  state_ = msr;
  if (result != MS_NOERROR || msr == nullptr || msr->numsamples != record.nsamp ||
      msr->datasamples == nullptr) {
    return false;
  }
  const auto count = static_cast<std::size_t>(msr->numsamples);
  switch (msr->sampletype) {
    case 'i':
      samples = std::span(static_cast<const std::int32_t *>(msr->datasamples), count);
      return true;
    case 'f':
      samples = std::span(static_cast<const float *>(msr->datasamples), count);
      return true;
    case 'd':
      samples = std::span(static_cast<const double *>(msr->datasamples), count);
      return true;
    default:
      return false;
  }
}

bool encode_miniseed(const char *who, const MiniseedCodes &codes, double time,
                     double samprate,
                     std::variant<Segment::Floats, Segment::Counts> samples,
                     int record_length, std::string &records) {
  const std::unique_lock lock(libmseed());
  const RecordPtr msr(msr_init(nullptr));
  if (msr == nullptr) return fail_memory(who);
  copy_code(msr->network, codes.net);
  copy_code(msr->station, codes.sta);
  copy_code(msr->location, codes.loc);
  copy_code(msr->channel, codes.chan);
  msr->dataquality = codes.quality;
  msr->reclen = record_length;
  msr->sequence_number = 1;
  msr->byteorder = 1;
  msr->samprate = samprate;
  msr->starttime = std::llround(time * HPTMODULUS);
  bool counts = false;
  std::visit(
      [&](auto span) {
        /* libmseed only reads them. */
        msr->datasamples = const_cast<void *>(static_cast<const void *>(span.data()));
        msr->numsamples = static_cast<std::int64_t>(span.size());
        if constexpr (std::is_same_v<decltype(span), Segment::Counts>) {
          counts = true;
          msr->encoding = fits_steim2(span) ? kWrittenSteim2 : kWrittenInt32;
        } else {
          msr->encoding = kWrittenFloat32;
        }
      },
      samples);
  msr->samplecnt = msr->numsamples;
  msr->sampletype = counts ? 'i' : 'f';
  std::int64_t packed = 0;
  const std::int64_t wanted = msr->numsamples;
  const bool good = add_blockettes(msr.get()) &&
                    msr_pack(msr.get(), collect, &records, &packed, 1, 0) >= 0;
  msr->datasamples = nullptr;  // the caller's
  if (good && packed == wanted) return true;
  return fail(who, "The samples cannot be packed");
}

#else

bool miniseed_available() { return false; }

MiniseedDecoder::~MiniseedDecoder() = default;

bool MiniseedDecoder::decode(const MiniseedRecord &, std::string &, MiniseedSamples &) {
  return false;
}

bool encode_miniseed(const char *who, const MiniseedCodes &, double, double,
                     std::variant<Segment::Floats, Segment::Counts>, int,
                     std::string &) {
  return fail(who, "The library was built without miniSEED (libmseed)");
}

#endif

}  // namespace ksutil
