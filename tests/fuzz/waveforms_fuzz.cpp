/* A folder with a miniSEED or SAC file, as an index takes it: pieces that lie in the file,
 * and rows that describe them or a reason why not.  The same index again changes nothing. */
#include "formats/waveform_index/waveform_index.h"
#include "tests/fuzz/import_subject.h"

namespace ksutil::fuzz {
namespace {

using namespace waveform_index;

IndexCounts index(db::DatabaseStore &store, const Scan &scan) {
  std::int64_t refused = 0;
  IndexListener told;
  told.refused = [&refused](const std::string &, const std::string &why) {
    require(!why.empty(), "a refused piece has a reason");
    refused++;
  };
  IndexCounts counts;
  require(index_waveforms(store, scan, false, false, told, counts),
          "a scan can be compared with a database");
  require((counts.refused > 0) == (refused > 0), "refused pieces are told");
  return counts;
}

}  // namespace

void read_input(std::string_view input) {
  static const Databases databases;
  static const test::TempFolder folder;
  folder.write("file", std::string(input));
  ScanListener heard;
  heard.refused = [](const std::string &, const std::string &why) {
    require(!why.empty(), "a refused file has a reason");
  };
  Scan scan(heard);
  require(scan.add(folder.path()), "a folder can be read");
  const auto size = static_cast<std::int64_t>(input.size());
  for (const ScannedPiece &piece : scan.pieces()) {
    require(piece.channel < scan.channels().size(), "a piece has a channel");
    require(piece.nsamp > 0 && piece.samprate > 0.0, "a piece has samples and a rate");
    require(piece.foff >= 0 && piece.foff < size, "a piece begins in its file");
  }
  if (scan.pieces().empty()) return;
  const std::string path = databases.make("one");
  const auto store = open_store(path);
  const IndexCounts first = index(*store, scan);
  require(
      first.added + first.refused == static_cast<std::int64_t>(scan.pieces().size()),
      "each piece has a row or is refused");
  require_verified(path);
  const IndexCounts again = index(*store, scan);
  require(again.added + again.changed + again.stale + again.gone == 0 &&
              again.unchanged == first.added && again.refused == first.refused,
          "the same index again changes nothing");
}

}  // namespace ksutil::fuzz
