/* export_command: ksdb export. */
#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "formats/exchange/export/event_source.h"
#include "formats/exchange/export/output_file.h"
#include "formats/exchange/format.h"
#include "formats/exchange/stations/station_source.h"
#include "platform/clock/clock.h"
#include "platform/db/store.h"
#include "platform/stock/text.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kExportBlocks = std::size_t{64} << 20;  // of tables, in memory

struct ExportArguments {
  std::string database, file = "-", format, after, before, where;
  std::vector<std::string> evids;
  double min_magnitude = -DBL_MAX;
  bool quiet = false;
};

/* The names of the formats that can be written. */
std::vector<std::string> words_of_writers() {
  std::vector<std::string> words;
  for (const exchange::Format *format : exchange::formats()) {
    if (format->open_writer != nullptr || format->open_station_writer != nullptr) {
      words.emplace_back(format->word);
    }
  }
  return words;
}

/* The name of the format for the ending of a file's name; "" for another ending. */
std::string word_of_ending(const std::string &file) {
  static constexpr std::array<std::pair<const char *, const char *>, 12> kEndings{
      {{".stationxml", "stationxml"},
       {".csv", "csv"},
       {".jsonl", "jsonl"},
       {".ndjson", "jsonl"},
       {".geojson", "geojson"},
       {".json", "geojson"},
       {".kml", "kml"},
       {".quakeml", "quakeml"},
       {".qml", "quakeml"},
       {".xml", "quakeml"},
       {".isf", "isf"},
       {".fdsn", "fdsn"}}};
  const std::string name = lowered(file);
  for (const auto &[ending, word] : kEndings) {
    if (name.ends_with(ending)) return word;
  }
  return "";
}

bool read_export_date(const char *option, const std::string &text, double &date) {
  if (text.empty() || parse_date_text(text, date)) return true;
  complain(std::string(option) + " '" + text + "' is not a date");
  return false;
}

bool read_selection(const ExportArguments &arguments,
                    exchange::EventSelection &selection) {
  selection.min_magnitude = arguments.min_magnitude;
  selection.where = arguments.where;
  for (const std::string &text : arguments.evids) {
    std::int64_t evid = -1;
    if (!parse_integer(text, evid) || evid < 0) {
      complain("--evid '" + text + "' is not the id of an event");
      return false;
    }
    selection.evids.push_back(evid);
  }
  return read_export_date("--after", arguments.after, selection.after) &&
         read_export_date("--before", arguments.before, selection.before);
}

std::string count_of(std::int64_t count, const char *thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

/* Reports what was wrong with the database; kFailure when a part of it is missing. */
int report_faults(const exchange::SourceFaults &faults, const std::string &database) {
  int result = kOk;
  const std::string see = "; see 'ksdb verify " + database + "'";
  for (const std::int64_t evid : faults.missing) {
    complain("there is no event with evid " + std::to_string(evid) + " in " + database);
    result = kFailure;
  }
  if (faults.events > 0) {
    complain(count_of(faults.events, "event") + " of " + database +
             " without a usable row or origin left out" + see);
    result = kFailure;
  }
  if (faults.references > 0) {
    complain(count_of(faults.references, "reference") + " of " + database +
             " to rows that are not there left out" + see);
  }
  const Unreadable unreadable{static_cast<long>(faults.rows),
                              static_cast<long>(faults.values)};
  return report_unreadable(unreadable, "rows", database) == kOk ? result : kFailure;
}

/* Writes all events; -1 after a failure of the output. */
long write_events(exchange::EventSource &source, exchange::Writer &writer, bool quiet) {
  Progress progress("exporting", static_cast<long>(source.size()), quiet, "events");
  exchange::Event event;
  long count = 0;
  if (!writer.begin()) return -1;
  while (source.next(event)) {
    if (!writer.put(event)) return -1;
    count++;
    progress.reach(static_cast<long>(source.looked_at()));
  }
  return writer.end() ? count : -1;
}

void tell_unplaced(const std::vector<exchange::Unplaced> &list, const char *where) {
  for (const exchange::Unplaced &left : list) {
    complain("no place in " + std::string(where) + " for " + left.name + " (" +
             std::to_string(left.count) + ")");
  }
}

/* Ends an export: moves the file into its place, and reports that. */
bool finish_file(const ExportArguments &arguments, exchange::OutputFile &output,
                 const std::string &what) {
  if (!output.finish()) {
    complain(output.problem());
    return false;
  }
  if (!arguments.quiet && arguments.file != "-") {
    std::printf("%s in %s\n", what.c_str(), arguments.file.c_str());
  }
  return true;
}

int export_stations(const ExportArguments &arguments, const exchange::Format &format,
                    db::DatabaseStore &store) {
  if (!arguments.where.empty() || !arguments.evids.empty() ||
      !arguments.after.empty() || !arguments.before.empty() ||
      arguments.min_magnitude > -DBL_MAX) {
    complain(std::string(format.name) +
             " holds stations: the options that choose events have no meaning");
    return kUsage;
  }
  const auto source = exchange::StationSource::open(store);
  if (source == nullptr) return kFailure;
  std::string problem;
  const auto output = exchange::OutputFile::open(arguments.file, problem);
  if (output == nullptr) {
    complain(problem);
    return kFailure;
  }
  const auto writer = format.open_station_writer(*output);
  long stations = 0;
  {
    Progress progress("exporting", 0, arguments.quiet, "stations");
    exchange::StationItem item;
    bool good = writer->begin();
    while (good && source->next(item)) {
      good = writer->put(item);
      if (item.kind == exchange::StationItem::Kind::kStation) stations++;
      progress.reach(stations);
    }
    if (good) good = writer->end();
    if (!good) {
      progress.wipe();
      complain(output->problem());
      return kFailure;
    }
  }
  if (!arguments.quiet) tell_unplaced(writer->without_place(), format.name);
  stations -= writer->stations_left_out();
  if (!finish_file(arguments, *output, count_of(stations, "station"))) return kFailure;
  if (!source->problem().empty()) complain(source->problem());
  for (const exchange::Unplaced &fault : source->faults().list()) {
    complain("left out: " + fault.name + " (" + std::to_string(fault.count) + ")");
  }
  return source->faults().empty() ? kOk : kFailure;
}

int export_database(const ExportArguments &arguments) {
  exchange::EventSelection selection;
  if (!read_selection(arguments, selection)) return kUsage;
  const std::string word =
      arguments.format.empty() ? word_of_ending(arguments.file) : arguments.format;
  const exchange::Format *format = exchange::format_of_word(word);
  if (format == nullptr ||
      (format->open_writer == nullptr && format->open_station_writer == nullptr)) {
    complain("--format is needed: the name " + arguments.file +
             " does not tell the format; see 'ksdb formats'");
    return kUsage;
  }
  const auto store = db::open_store(arguments.database, "r", kExportBlocks);
  if (store == nullptr) return kFailure;
  if (format->open_station_writer != nullptr) {
    return export_stations(arguments, *format, *store);
  }
  std::string problem;
  const auto source = exchange::EventSource::open(*store, selection, problem);
  if (source == nullptr) {
    if (!problem.empty()) complain(problem);
    return arguments.where.empty() || problem.empty() ? kFailure : kUsage;
  }
  const auto output = exchange::OutputFile::open(arguments.file, problem);
  if (output == nullptr) {
    complain(problem);
    return kFailure;
  }
  const auto writer = format->open_writer(*output);
  const long count = write_events(*source, *writer, arguments.quiet);
  if (count < 0) {
    complain(output->problem());
    return kFailure;
  }
  if (!arguments.quiet) {
    tell_unplaced(source->without_place(), "the exchange formats");
    tell_unplaced(writer->without_place(), format->name);
  }
  if (!finish_file(arguments, *output, count_of(count, "event"))) return kFailure;
  return report_faults(source->faults(), arguments.database);
}

void describe_export(CLI::App &command, ExportArguments &arguments) {
  add_database(command, arguments.database);
  command
      .add_option("file", arguments.file,
                  "File that is written or replaced; - is standard output")
      ->capture_default_str();
  command
      .add_option("--format", arguments.format,
                  "What is written; without it the ending of the file's name tells")
      ->check(CLI::IsMember(words_of_writers()));
  command
      .add_option("--where", arguments.where,
                  "Only events for whose preferred origin this is true: fields of "
                  "origin and event, magnitude, magtype")
      ->type_name("EXPRESSION");
  add_list(command, "--evid", arguments.evids, "Only these events");
  command.add_option("--min-magnitude", arguments.min_magnitude,
                     "Only events of this magnitude and above");
  command.add_option("--after", arguments.after, "Only events at or after this date");
  command.add_option("--before", arguments.before, "Only events before this date");
  add_quiet(command, arguments.quiet);
}

}  // namespace

Command export_command() {
  return make_command<ExportArguments>(
      "export",
      "Writes the events of a database in an exchange format, in the order of their "
      "times, or its stations",
      {"ksdb export data/aug2015 aug2015.quakeml",
       "ksdb export --format csv --where 'magnitude >= 6.5' data/aug2015",
       "ksdb export --evid 48836020 --format jsonl data/ueb/ueb_test",
       "ksdb export --after 2015-08-25 data/aug2015 late.kml"},
      describe_export, export_database);
}

}  // namespace ksutil::tools
