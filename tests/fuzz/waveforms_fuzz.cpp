/* A folder with a miniSEED or SAC file, as an index takes it: pieces that lie in the file,
 * and rows that describe them or a reason why not. */
#include <sys/stat.h>

#include <memory>

#include "formats/waveform_index/waveform_index.h"
#include "platform/db/store_plugin.h"
#include "tests/fuzz/subject.h"
#include "tests/support/folder.h"

namespace ksutil::fuzz {
namespace {

using namespace waveform_index;

/* An empty database, and a folder beside it. */
struct Place {
  Place() {
    require(db::create_database({folder / "db", "css3.0", db::kFlatFilesStore, ""}),
            "a database can be made");
    store = db::open_store(folder / "db", "r+", std::size_t{64} << 20);
    require(store != nullptr && ::mkdir((folder / "waves").c_str(), 0700) == 0,
            "there is room for files");
  }
  const test::TempFolder folder;
  std::unique_ptr<db::DatabaseStore> store;
};

}  // namespace

void read_input(std::string_view input) {
  static const Place place;
  place.folder.write("waves/file", std::string(input));
  ScanListener heard;
  heard.refused = [](const std::string &, const std::string &why) {
    require(!why.empty(), "a refused file has a reason");
  };
  Scan scan(heard);
  require(scan.add(place.folder / "waves"), "a folder can be read");
  const auto size = static_cast<std::int64_t>(input.size());
  for (const ScannedPiece &piece : scan.pieces()) {
    require(piece.channel < scan.channels().size(), "a piece has a channel");
    require(piece.nsamp > 0 && piece.samprate > 0.0, "a piece has samples and a rate");
    require(piece.foff >= 0 && piece.foff < size, "a piece begins in its file");
  }
  std::int64_t refused = 0;
  IndexListener told;
  told.refused = [&refused](const std::string &, const std::string &why) {
    require(!why.empty(), "a refused piece has a reason");
    refused++;
  };
  IndexCounts counts;
  require(index_waveforms(*place.store, scan, true, false, told, counts),
          "a scan can be compared with a database");
  require(
      counts.added + counts.refused == static_cast<std::int64_t>(scan.pieces().size()),
      "each piece has a row or is refused");
  require((counts.refused > 0) == (refused > 0), "refused pieces are told");
}

}  // namespace ksutil::fuzz
