/* miniSEED files: what is listed lies in the file and can be asked for, however little of it
 * can be decoded; samples that were read come back from records that are made of them. */
#include <algorithm>
#include <cmath>
#include <span>
#include <string>
#include <vector>

#include "platform/trace/miniseed.h"
#include "platform/trace/segment.h"
#include "platform/trace/trace.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {
namespace {

template <class Sample>
void pack_again(const MiniseedPiece &piece, std::vector<Sample> samples) {
  Segment segment;
  segment.time = piece.time;
  segment.samprate = piece.samprate;
  segment.samples = std::span<const Sample>(samples);
  std::string records;
  if (!miniseed_pack(segment, piece.codes, 512, [&records](std::string_view record) {
        records += record;
        return true;
      })) {
    return;
  }
  const std::string path = file_of(records);
  MiniseedContents contents;
  require(records.empty() || miniseed_list(path, contents),
          "records that were made can be listed");
  std::vector<Sample> back;
  for (const MiniseedPiece &part : contents.pieces) {
    std::vector<Sample> more;
    require(miniseed_read(path, part, 0, part.nsamp, more),
            "records that were made can be read");
    back.insert(back.end(), more.begin(), more.end());
  }
  std::erase_if(samples, [](Sample sample) {
    return !std::isfinite(static_cast<double>(sample)) ||
           is_gap_sample(static_cast<double>(sample));
  });
  require(back == samples, "samples come back from records that were made");
}

}  // namespace

void read_input(std::string_view input) {
  miniseed_recognise(input.substr(0, 512));
  const std::string path = file_of(input);
  MiniseedContents contents;
  if (!miniseed_list(path, contents)) return;
  const auto size = static_cast<std::int64_t>(input.size());
  std::int64_t samples = 0;
  for (const MiniseedPiece &piece : contents.pieces) {
    samples += piece.nsamp;
    require(piece.nsamp > 0 && piece.samprate > 0.0, "a piece has samples and a rate");
    require(piece.foff >= 0 && piece.foff + piece.record_length <= size,
            "a piece begins with a record of the file");
  }
  require(samples <= 2 * size, "no more samples than the bytes can hold");
  require(contents.foreign_bytes <= size, "foreign bytes are bytes of the file");
  const std::size_t count = std::min<std::size_t>(contents.pieces.size(), 16);
  for (std::size_t i = 0; i < count; ++i) {
    const MiniseedPiece &piece = contents.pieces[i];
    std::vector<double> all;
    if (miniseed_read(path, piece, 0, piece.nsamp, all)) {
      require(static_cast<std::int64_t>(all.size()) == piece.nsamp,
              "all samples come when they are asked for");
    }
    std::vector<std::int32_t> counts;
    if (miniseed_read(path, piece, 0, std::min<std::int64_t>(piece.nsamp, 2000),
                      counts)) {
      require(miniseed_holds_counts(piece.encoding), "counts come of counts");
      if (piece.samprate > 1e-3 && piece.samprate < 1e4) {
        pack_again(piece, std::move(counts));
      }
      file_of(input);
    }
    MiniseedPiece record;
    require(miniseed_record_at(path, piece.foff, record) && record.foff == piece.foff,
            "the first record of a piece is there");
    std::vector<float> part;
    if (miniseed_read(path, piece, piece.nsamp / 2, 1, part)) {
      require(part.size() == 1, "one sample comes for one");
    }
  }
}

}  // namespace ksutil::fuzz
