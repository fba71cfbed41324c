/* miniSEED files: what is listed lies in the file and can be asked for, however little of it
 * can be decoded. */
#include <algorithm>

#include "platform/trace/miniseed.h"
#include "tests/fuzz/subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  using namespace ksutil;
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
    std::vector<float> part;
    if (miniseed_read(path, piece, piece.nsamp / 2, 1, part)) {
      require(part.size() == 1, "one sample comes for one");
    }
  }
}
