/* exchange: import and export of exchange formats for Python. */
#include <pybind11/stl.h>

#include <optional>
#include <string>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"

#include "bindings/interpreter/file_wait.h"
#include "formats/exchange/export/event_source.h"
#include "formats/exchange/format.h"
#include "formats/exchange/import/importer.h"
#include "formats/exchange/stations/station_import.h"
#include "formats/exchange/stations/station_source.h"
#include "formats/waveform_index/waveform_index.h"
#include "platform/db/store.h"

namespace ksutil::python {

namespace {

using exchange::Reader;

constexpr std::size_t kBlockBytes = std::size_t{64} << 20;  // of tables, in memory
constexpr long kLooks = 256;                 // records between two looks for signals
constexpr std::size_t kMostRefusals = 1000;  // that a report lists

/* What was left out, for a report. */
struct Refusals {
  std::int64_t count = 0;
  std::vector<std::pair<std::int64_t, std::string>> list;  // line and reason
  void add(std::int64_t line, const std::string &reason) {
    count++;
    if (list.size() < kMostRefusals) list.emplace_back(line, reason);
  }
};

py::object decoded_place(std::int64_t line) { return py::int_(line); }
py::object decoded_place(const std::string &file) { return decoded(file); }

/* [(line or file, reason)] */
template <class Place>
py::list decoded_pairs(const std::vector<std::pair<Place, std::string>> &pairs) {
  py::list list;
  for (const auto &[place, reason] : pairs) {
    list.append(py::make_tuple(decoded_place(place), decoded(reason)));
  }
  return list;
}

py::dict unplaced(const std::vector<exchange::Unplaced> &list) {
  py::dict counts;
  for (const exchange::Unplaced &each : list) {
    counts[text_or_none(each.name)] = each.count;
  }
  return counts;
}

/* Looks for signals from a thread that has released the GIL. */
void look_for_signals(long count) {
  if (count % kLooks != 0) return;
  const py::gil_scoped_acquire gil;
  check_signals();
}

std::unique_ptr<db::DatabaseStore> open_store(const std::string &path,
                                              const char *mode) {
  return db::open_store(path, mode, kBlockBytes);
}

std::unique_ptr<exchange::Input> open_input(const py::object &source) {
  std::string problem;
  std::unique_ptr<exchange::Input> input;
  if (PyObject_CheckBuffer(source.ptr()) != 0) {
    const py::bytes bytes =
        py::reinterpret_steal<py::bytes>(PyBytes_FromObject(source.ptr()));
    if (!bytes) throw py::error_already_set();
    input = exchange::Input::of_text("the text given", std::string(bytes));
  } else {
    const std::string path = path_of(source);
    if (path == "-") throw Error("- is not a file");
    input = released([&] { return exchange::Input::open(path, problem); });
  }
  if (input == nullptr) throw Error(problem);
  return input;
}

exchange::Recognised kind_of(const exchange::Input &input,
                             const std::optional<std::string> &format) {
  exchange::Recognised kind = exchange::recognise(input.head());
  if (!format) return kind;
  kind.format = exchange::format_of_word(*format);
  if (kind.format == nullptr) {
    throw py::value_error("there is no format '" + *format + "'");
  }
  return kind;
}

/* Calls take() with each record of a reader, without the GIL. */
template <class Records, class Record, class Take>
void read_all(Records &reader, Record &record, Refusals &refusals, const Take &take) {
  for (long count = 1;; count++) {
    look_for_signals(count);
    switch (reader.next(record)) {
      case Reader::Got::kEnd:
        return;
      case Reader::Got::kFailed:
        throw Error(reader.problem());
      case Reader::Got::kRefused:
        refusals.add(reader.line(), reader.problem());
        break;
      case Reader::Got::kRecord:
        take();
    }
  }
}

void gather(Reader &reader, exchange::Gathering &events, Refusals &refusals,
            std::int64_t &read) {
  exchange::Event event;
  read_all(reader, event, refusals, [&] {
    read++;
    if (exchange::record_count(event) > exchange::kMostRecords) {
      refusals.add(event.line, "the event has too many picks and the like");
    } else if (!events.add(event)) {
      throw Error(events.problem());
    }
  });
}

void gather_stations(exchange::StationReader &reader,
                     exchange::StationGathering &stations, Refusals &refusals) {
  exchange::StationItem item;
  read_all(reader, item, refusals, [&] {
    if (!stations.add(item, reader.line())) throw Error(stations.problem());
  });
}

[[noreturn]] void fail_strict(const Refusals &refusals,
                              const std::vector<exchange::Unplaced> &left,
                              std::int64_t shortened) {
  std::string why = "nothing imported (strict)";
  if (!refusals.list.empty()) {
    why += ": line " + std::to_string(refusals.list.front().first) + ": " +
           refusals.list.front().second;
  } else if (!left.empty()) {
    why += ": no place for " + left.front().name;
  } else if (shortened > 0) {
    why += ": " + std::to_string(shortened) + " texts do not fit their fields";
  }
  throw Error(why);
}

py::dict report_of(const char *kind, const Refusals &refusals,
                   const std::vector<exchange::Unplaced> &left) {
  py::dict report;
  report["kind"] = kind;
  report["refused"] = refusals.count;
  report["refusals"] = decoded_pairs(refusals.list);
  report["without_place"] = unplaced(left);
  return report;
}

py::dict import_stations(const std::string &database, exchange::Input &input,
                         const exchange::Recognised &kind, bool dry_run, bool strict) {
  Refusals refusals;
  exchange::StationGathering stations;
  exchange::StationImportCounts counts;
  exchange::UnplacedCounts left;
  const Failure failure;
  released([&] {
    std::string problem;
    const auto reader = exchange::open_station_reader(input, kind, problem);
    if (reader == nullptr) throw Error(problem);
    gather_stations(*reader, stations, refusals);
    left = stations.unplaced();
    for (const exchange::Unplaced &each : reader->without_place()) {
      left.add(each.name, each.count);
    }
    if (strict && (refusals.count > 0 || !left.empty())) {
      fail_strict(refusals, left.list(), 0);
    }
    const auto store = open_store(database, "r+");
    if (store == nullptr) failure.raise();
    const auto imported = exchange::import_stations(
        *store, stations, {dry_run, strict},
        [&](std::int64_t line, const std::string &reason) {
          refusals.add(line, reason);
        },
        counts);
    if (imported == exchange::StationsImported::kStrict) {
      fail_strict(refusals, left.list(), counts.shortened);
    }
    if (imported != exchange::StationsImported::kYes) failure.raise();
  });
  py::dict report = report_of("stations", refusals, left.list());
  report["added"] = counts.stations.added + counts.channels.added;
  report["updated"] = counts.stations.updated + counts.channels.updated;
  report["unchanged"] = counts.stations.unchanged + counts.channels.unchanged;
  report["shortened"] = counts.shortened;
  report["response_files"] = counts.files;
  return report;
}

py::dict import_events(const std::string &database, exchange::Input &input,
                       const exchange::Recognised &kind,
                       const exchange::ImportOptions &options) {
  Refusals refusals;
  exchange::Gathering events;
  exchange::ImportCounts counts;
  exchange::UnplacedCounts left;
  std::int64_t read = 0;
  const Failure failure;
  released([&] {
    std::string problem;
    {
      const auto reader = exchange::open_reader(input, kind, problem);
      if (reader == nullptr) throw Error(problem);
      gather(*reader, events, refusals, read);
      for (const exchange::Unplaced &each : reader->without_place()) {
        left.add(each.name, each.count);
      }
    }
    if (options.strict && (refusals.count > 0 || !left.empty())) {
      fail_strict(refusals, left.list(), 0);
    }
    const auto store = open_store(database, "r+");
    if (store == nullptr) failure.raise();
    exchange::ImportListener listener;
    listener.refused = [&](std::int64_t line, const std::string &reason) {
      refusals.add(line, reason);
    };
    const auto imported =
        exchange::import_events(*store, events, options, listener, counts);
    left.add(counts.without_place);
    if (imported == exchange::Imported::kStrict) {
      fail_strict(refusals, left.list(), counts.shortened);
    }
    if (imported != exchange::Imported::kYes) failure.raise();
  });
  py::dict report = report_of("events", refusals, left.list());
  report["added"] = counts.added;
  report["updated"] = counts.updated;
  report["unchanged"] = counts.unchanged;
  report["older"] = counts.older;
  report["left_out"] = counts.left_out;
  report["superseded"] = events.superseded();
  report["shortened"] = counts.shortened;
  return report;
}

py::dict import_catalog(const std::string &database, const py::object &source,
                        const std::optional<std::string> &format,
                        std::optional<double> after, std::optional<double> before,
                        std::optional<double> min_magnitude, bool keep_origins,
                        bool strict, bool dry_run) {
  refuse_nul(database, "the path");
  const auto input = open_input(source);
  const exchange::Recognised kind = kind_of(*input, format);
  if (kind.format != nullptr && kind.format->open_station_reader != nullptr) {
    return import_stations(database, *input, kind, dry_run, strict);
  }
  exchange::ImportOptions options;
  if (after) options.after = *after;
  if (before) options.before = *before;
  if (min_magnitude) options.min_magnitude = *min_magnitude;
  options.keep_origins = keep_origins;
  options.strict = strict;
  options.dry_run = dry_run;
  return import_events(database, *input, kind, options);
}

py::dict import_waveforms(const std::string &database, const py::object &source,
                          bool strict, bool dry_run) {
  refuse_nul(database, "the path");
  const std::string path = path_of(source);
  waveform_index::IndexCounts counts;
  std::vector<std::pair<std::string, std::string>> refusals;
  std::int64_t others = 0, files = 0;
  const auto refuse = [&](const std::string &file, const std::string &why) {
    if (refusals.size() < kMostRefusals) refusals.emplace_back(file, why);
  };
  const Failure failure;
  released([&] {
    waveform_index::ScanListener heard;
    heard.reached = [](std::int64_t count) { look_for_signals(count); };
    heard.refused = refuse;
    heard.other = [&](const std::string &) { others++; };
    waveform_index::Scan scan(heard);
    if (!scan.add(path)) failure.raise();
    files = static_cast<std::int64_t>(scan.files().size());
    if (strict && !refusals.empty()) {
      throw Error("nothing imported (strict): " + refusals[0].first + ": " +
                  refusals[0].second);
    }
    const auto store = open_store(database, "r+");
    if (store == nullptr) failure.raise();
    waveform_index::IndexListener listener;
    listener.refused = refuse;
    if (!waveform_index::index_waveforms(*store, scan, dry_run, strict, listener,
                                         counts)) {
      if (strict && !refusals.empty()) {
        throw Error("nothing imported (strict): " + refusals[0].first + ": " +
                    refusals[0].second);
      }
      failure.raise();
    }
  });
  py::dict report;
  report["kind"] = "waveforms";
  report["added"] = counts.added;
  report["updated"] = counts.changed;
  report["unchanged"] = counts.unchanged;
  report["refused"] = refusals.size();
  report["refusals"] = decoded_pairs(refusals);
  report["files"] = files;
  report["other_files"] = others;
  return report;
}

/* Takes the text into memory, or in pieces to a descriptor. */
class Sink final : public exchange::TextSink {
 public:
  explicit Sink(int fd) : fd_(fd) {}
  bool put(std::string_view text) override {
    text_.append(text);
    if (fd_ < 0 || text_.size() < kPiece) return true;
    return flush();
  }
  bool flush() {
    if (fd_ < 0) return true;
    const py::gil_scoped_acquire gil;
    write_all(fd_, text_);
    text_.clear();
    return true;
  }
  const std::string &text() const { return text_; }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 20;
  const int fd_;
  std::string text_;
};

/* Writes a database in a format; the text (None with a descriptor) and the report. */
py::tuple export_catalog(const std::string &database, const std::string &word, int fd,
                         std::optional<double> after, std::optional<double> before,
                         std::optional<double> min_magnitude,
                         const std::vector<std::int64_t> &evids,
                         const std::string &where) {
  const exchange::Format *const format = exchange::format_of_word(word);
  if (format == nullptr ||
      (format->open_writer == nullptr && format->open_station_writer == nullptr)) {
    throw py::value_error("no format '" + word + "' is written");
  }
  refuse_nul(database, "the path");
  exchange::EventSelection selection;
  if (after) selection.after = *after;
  if (before) selection.before = *before;
  if (min_magnitude) selection.min_magnitude = *min_magnitude;
  selection.evids = evids;
  selection.where = where;
  Sink sink(fd);
  exchange::UnplacedCounts left;
  std::int64_t count = 0, faults = 0;
  const bool stations = format->open_station_writer != nullptr;
  if (stations &&
      (after || before || min_magnitude || !evids.empty() || !where.empty())) {
    throw py::value_error(std::string(format->name) +
                          " holds stations: conditions on events have no meaning");
  }
  const Failure failure;
  const auto check = [&](bool good) {
    if (!good) failure.raise("the output cannot be written");
  };
  const auto add_left = [&](const std::vector<exchange::Unplaced> &list) {
    for (const exchange::Unplaced &each : list) left.add(each.name, each.count);
  };
  released([&] {
    const auto store = open_store(database, "r");
    if (store == nullptr) failure.raise();
    if (stations) {
      const auto source = exchange::StationSource::open(*store);
      if (source == nullptr) failure.raise();
      const auto writer = format->open_station_writer(sink);
      exchange::StationItem item;
      check(writer->begin());
      for (long i = 1; source->next(item); ++i) {
        look_for_signals(i);
        check(writer->put(item));
        if (item.kind == exchange::StationItem::Kind::kStation) count++;
      }
      check(writer->end());
      add_left(writer->without_place());
      add_left(source->faults().list());
    } else {
      std::string problem;
      const auto source = exchange::EventSource::open(*store, selection, problem);
      if (source == nullptr) {
        if (problem.empty()) failure.raise();
        throw Error(problem);
      }
      const auto writer = format->open_writer(sink);
      exchange::Event event;
      check(writer->begin());
      while (source->next(event)) {
        look_for_signals(static_cast<long>(++count));
        check(writer->put(event));
      }
      check(writer->end());
      add_left(source->without_place());
      add_left(writer->without_place());
      const exchange::SourceFaults &found = source->faults();
      faults = found.events + found.rows + found.values + found.references +
               static_cast<std::int64_t>(found.missing.size());
    }
    sink.flush();
  });
  py::dict report;
  report["kind"] = stations ? "stations" : "events";
  report["written"] = count;
  report["faults"] = faults;
  report["without_place"] = unplaced(left.list());
  return py::make_tuple(fd < 0 ? py::object(py::bytes(sink.text())) : py::none(),
                        report);
}

py::list formats() {
  py::list list;
  for (const exchange::Format *const format : exchange::formats()) {
    py::dict facts;
    facts["word"] = format->word;
    facts["name"] = format->name;
    facts["reads"] =
        format->open_reader != nullptr || format->open_station_reader != nullptr;
    facts["writes"] =
        format->open_writer != nullptr || format->open_station_writer != nullptr;
    facts["stations"] = format->open_station_reader != nullptr ||
                        format->open_station_writer != nullptr;
    list.append(facts);
  }
  return list;
}

}  // namespace

void bind_exchange(py::module_ &m) {
  m.def("exchange_import", import_catalog, py::arg("database"), py::arg("source"),
        py::arg("format"), py::arg("after"), py::arg("before"),
        py::arg("min_magnitude"), py::arg("keep_origins"), py::arg("strict"),
        py::arg("dry_run"));
  m.def("exchange_import_waveforms", import_waveforms, py::arg("database"),
        py::arg("source"), py::arg("strict"), py::arg("dry_run"));
  m.def("exchange_export", export_catalog, py::arg("database"), py::arg("format"),
        py::arg("fd"), py::arg("after"), py::arg("before"), py::arg("min_magnitude"),
        py::arg("evids"), py::arg("where"));
  m.def("exchange_formats", formats);
}

}  // namespace ksutil::python
