/* Catalogues and bulletins on their way through a database: the first byte chooses options,
 * the rest is a file of any format.  What was imported is a sound database; the same import
 * again changes nothing; what is exported is read again.
 * Words: formats/exchange/table formats/exchange/geojson formats/exchange/quakeml
 * formats/exchange/sc3ml formats/exchange/isf formats/exchange/nordic */
#include <algorithm>
#include <cstdio>
#include <string>

#include "formats/exchange/import/importer.h"
#include "tests/fuzz/import_subject.h"

namespace ksutil::fuzz {
namespace {

using exchange::Reader;

/* The events of a file; null when it is refused as a whole. */
std::unique_ptr<exchange::Gathering> gather(std::string_view bytes) {
  std::string problem;
  const auto input = exchange::Input::open(file_of(bytes), problem);
  require(input != nullptr, "a file can be opened");
  const auto reader =
      exchange::open_reader(*input, exchange::recognise(input->head()), problem);
  if (reader == nullptr) return nullptr;
  auto events = std::make_unique<exchange::Gathering>();
  exchange::Event event;
  for (;;) {
    const Reader::Got got = reader->next(event);
    if (got == Reader::Got::kFailed) return nullptr;
    if (got == Reader::Got::kEnd) return events;
    if (got == Reader::Got::kRefused) continue;
    if (exchange::record_count(event) > exchange::kMostRecords) continue;
    require(events->add(event), "an event is gathered");
  }
}

exchange::ImportCounts import(db::DatabaseStore &store, exchange::Gathering &events,
                              const exchange::ImportOptions &options) {
  exchange::ImportCounts counts;
  std::int64_t refused = 0;
  exchange::ImportListener listener;
  listener.refused = [&refused](std::int64_t, const std::string &reason) {
    require(!reason.empty(), "a refused event has a reason");
    refused++;
  };
  require(import_events(store, events, options, listener, counts) ==
              exchange::Imported::kYes,
          "events are imported");
  require(counts.refused == refused, "refused events are told");
  require(counts.added + counts.updated + counts.unchanged + counts.older +
                  counts.left_out + counts.refused ==
              static_cast<std::int64_t>(events.size()),
          "each event is accounted for");
  return counts;
}

/* Writes the events of a database in a format: their number. */
std::int64_t write_all(db::DatabaseStore &store, const exchange::Format &format,
                       exchange::TextSink &sink) {
  std::string problem;
  const auto source = exchange::EventSource::open(store, {}, problem);
  require(source != nullptr, "a database can be exported");
  const std::int64_t count = write_events(*source, format, sink);
  const exchange::SourceFaults faults = source->faults();
  require(faults.rows + faults.values + faults.references == 0,
          "an import leaves no rows that an export cannot use");
  return count;
}

/* What follows the head, which names the database and the time. */
std::string_view events_of(std::string_view quakeml) {
  return quakeml.substr(std::min(quakeml.find("<event "), quakeml.size()));
}

/* QuakeML holds all that it shows of a database: another database that is made of it is
 * shown as the same. */
void require_same_again(const std::string &quakeml, const Databases &databases) {
  const auto events = gather(quakeml);
  require(events != nullptr, "QuakeML can be read");
  const auto store = open_store(databases.make("two"));
  import(*store, *events, {});
  test::KeptText kept;
  write_all(*store, *exchange::format_of_word("quakeml"), kept);
  if (events_of(kept.text) == events_of(quakeml)) return;
  std::fprintf(stderr, "%s\n%s\n", quakeml.c_str(), kept.text.c_str());
  require(false, "QuakeML brings another database to the same state");
}

}  // namespace

void read_input(std::string_view bytes) {
  if (bytes.empty()) return;
  const auto choice = static_cast<unsigned char>(bytes.front());
  const auto events = gather(bytes.substr(1));
  if (events == nullptr || events->size() == 0) return;

  static const Databases databases;
  const std::string path = databases.make("one");
  exchange::ImportOptions options;
  options.keep_origins = choice % 2 == 1;
  const auto store = open_store(path);
  const exchange::ImportCounts first = import(*store, *events, options);
  require_verified(path);
  const exchange::ImportCounts again = import(*store, *events, options);
  require(again.added == 0 && again.updated == 0 && again.refused == first.refused,
          "the same import again changes nothing");

  for (const exchange::Format *format : exchange::formats()) {
    if (format->open_writer == nullptr) continue;
    test::KeptText kept;
    const std::int64_t count = write_all(*store, *format, kept);
    require(count == first.added, "all events are exported");
    if (format->open_reader != nullptr && count > 0) {
      count_written(*format, kept.text);
    }
    if (format->word == std::string_view("quakeml")) {
      require(count_written(*format, kept.text) == count,
              "no event is lost on the way");
      /* Bytes that are not UTF-8 are shown by another character. */
      if (kept.text.find("\uFFFD") == std::string::npos) {
        require_same_again(kept.text, databases);
      }
    }
  }
}

}  // namespace ksutil::fuzz
