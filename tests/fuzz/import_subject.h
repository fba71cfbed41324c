/* What the subjects that import into a database have in common: databases that are made
 * anew for each input, and what must hold in them. */
#ifndef KSUTIL_TESTS_FUZZ_IMPORT_SUBJECT_H
#define KSUTIL_TESTS_FUZZ_IMPORT_SUBJECT_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "formats/exchange/export/event_source.h"
#include "formats/exchange/format.h"
#include "formats/exchange/stations/station_source.h"
#include "platform/db/store_plugin.h"
#include "tests/fuzz/subject.h"
#include "tests/support/folder.h"
#include "tests/support/kept_text.h"
#include "tools/ksdb/verify_database.h"

namespace ksutil::fuzz {

/* A folder for databases. */
class Databases {
 public:
  /* A database without rows; what had its name goes with all of its files. */
  std::string make(const std::string &name) const {
    std::error_code none;
    for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
      if (entry.path().filename().string().starts_with(name)) {
        std::filesystem::remove_all(entry.path(), none);
      }
    }
    require(db::create_database({folder_ / name, "css3.0", db::kFlatFilesStore, ""}),
            "a database can be made");
    return folder_ / name;
  }

 private:
  const test::TempFolder folder_;
};

inline std::unique_ptr<db::DatabaseStore> open_store(const std::string &path) {
  auto store = db::open_store(path, "r+", std::size_t{64} << 20);
  require(store != nullptr, "a database can be opened");
  return store;
}

/* Ends the process, with what was found, unless `ksdb verify` is content with the ids, the
 * references and the fields of a database.  Dates, mechanisms and samples are what a file
 * says. */
inline void require_verified(const std::string &path) {
  const tools::OpenDatabase database(path, "r");
  tools::Problems problems(5);
  require(bool(database) && tools::verify_database(database, true, problems),
          "a database can be verified");
  problems.each(
      [](const std::string &table, const std::string &kind, long, const auto &kept) {
        if (kind == "load dates" || kind.ends_with("their tensor") ||
            kind.starts_with("waveform files") || kind == "doubled waveform rows") {
          return;
        }
        for (const tools::Problems::Problem &problem : kept) {
          std::fprintf(stderr, "%s record %ld: %s\n", table.c_str(), problem.record,
                       problem.text.c_str());
        }
        require(false, "what was imported is a sound database");
      });
}

/* Writes the events that a source gives: their number. */
inline std::int64_t write_events(exchange::EventSource &source,
                                 const exchange::Format &format,
                                 exchange::TextSink &sink) {
  const auto writer = format.open_writer(sink);
  require(writer->begin(), "a writer begins");
  exchange::Event event;
  std::int64_t count = 0;
  for (; source.next(event); count++) {
    require(writer->put(event), "an event is written");
  }
  require(writer->end(), "a writer ends");
  return count;
}

inline void write_stations(exchange::StationSource &source,
                           const exchange::Format &format, exchange::TextSink &sink) {
  const auto writer = format.open_station_writer(sink);
  require(writer->begin(), "a writer begins");
  exchange::StationItem item;
  while (source.next(item)) require(writer->put(item), "an item is written");
  require(writer->end(), "a writer ends");
}

/* The number of events in a text that the library wrote; what its reader refuses counts,
 * for the format may need what the database need not have. */
inline std::int64_t count_written(const exchange::Format &format,
                                  const std::string &text) {
  std::string problem;
  const auto input = exchange::Input::open(file_of(text), problem);
  const auto reader = format.open_reader(*input, problem);
  require(reader != nullptr, "what was written has a reader");
  exchange::Event event;
  for (std::int64_t count = 0;; count++) {
    const exchange::Reader::Got got = reader->next(event);
    require(got != exchange::Reader::Got::kFailed, "what was written can be read");
    if (got == exchange::Reader::Got::kEnd) return count;
  }
}

}  // namespace ksutil::fuzz
#endif
