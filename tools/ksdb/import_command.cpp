#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "formats/exchange/format.h"
#include "formats/exchange/import/importer.h"
#include "formats/exchange/text/input.h"
#include "platform/clock/clock.h"
#include "platform/db/db.h"
#include "platform/elog/elog.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/import_stations.h"
#include "tools/ksdb/import_target.h"
#include "tools/ksdb/index_command.h"
#include "tools/ksdb/refusals.h"
#include "tools/ksdb/stage_clock.h"

namespace ksutil::tools {
namespace {

using exchange::Imported;

constexpr long kMegabyte = 1 << 20;

struct ImportArguments {
  std::string file, database, schema, after, before, format;
  double min_magnitude = -DBL_MAX;
  bool quiet = false, dry_run = false, strict = false, keep_origins = false;
};

bool read_date(const char *option, const std::string &text, double &date) {
  if (text.empty() || parse_date_text(text, date)) return true;
  complain(std::string(option) + " '" + text + "' is not a date");
  return false;
}

/* The names of the formats that can be read. */
std::vector<std::string> words_of_formats() {
  std::vector<std::string> words;
  for (const exchange::Format *format : exchange::formats()) {
    if (format->open_reader != nullptr || format->open_station_reader != nullptr) {
      words.emplace_back(format->word);
    }
  }
  return words;
}

/* Reads the whole input before it touches the database; false after a complaint. */
bool gather(exchange::Input &input, exchange::Reader &reader, bool quiet,
            exchange::Gathering &events, Refusals &refusals, long &read) {
  const bool sized = input.size() > 0;
  Progress progress("reading " + input.name(), sized ? input.size() / kMegabyte + 1 : 0,
                    quiet, sized ? "MB" : "events");
  exchange::Event event;
  for (;; read++) {
    switch (reader.next(event)) {
      case exchange::Reader::Got::kEnd:
        return true;
      case exchange::Reader::Got::kFailed:
        progress.wipe();
        complain(reader.problem());
        return false;
      case exchange::Reader::Got::kRefused:
        progress.wipe();
        refusals.add(reader.line(), reader.problem());
        break;
      case exchange::Reader::Got::kRecord:
        if (exchange::record_count(event) > exchange::kMostRecords) {
          progress.wipe();
          refusals.add(event.line, "the event has more than " +
                                       std::to_string(exchange::kMostRecords) +
                                       " picks, magnitudes and the like");
          break;
        }
        if (events.add(event)) break;
        progress.wipe();
        complain(events.problem());
        return false;
    }
    progress.reach(sized ? input.consumed() / kMegabyte : read);
  }
}

/* How much was read: lines where each holds an event, else events. */
std::string counted(long read, bool in_lines) {
  return std::to_string(read) + (in_lines    ? " lines"
                                 : read == 1 ? " event"
                                             : " events");
}

/* "netmag.auth, arrival.iphase (2)". */
std::string named(const exchange::UnplacedCounts &fields) {
  std::string text;
  for (const exchange::Unplaced &field : fields.list()) {
    text += (text.empty() ? "" : ", ") + field.name;
    if (field.count > 1) text += " (" + std::to_string(field.count) + ")";
  }
  return text;
}

void tell_of(const exchange::ImportCounts &counts, std::int64_t superseded,
             long refused, const std::string &read, bool dry_run) {
  const auto tell = [](const char *format, std::int64_t count) {
    if (count > 0) std::printf(format, static_cast<long>(count));
  };
  std::printf("%s%ld added, %ld updated, %ld unchanged, %ld older",
              dry_run ? "would be: " : "", static_cast<long>(counts.added),
              static_cast<long>(counts.updated), static_cast<long>(counts.unchanged),
              static_cast<long>(counts.older));
  tell(", %ld superseded", superseded);
  tell(", %ld left out", counts.left_out);
  std::printf(", %ld refused: %s\n", refused, read.c_str());
  tell("%ld completed what an interrupted import left\n", counts.healed);
  tell("%ld with the earlier origin kept\n", counts.kept);
  if (counts.shortened > 0) {
    std::printf("%ld texts shortened to their fields: %s\n",
                static_cast<long>(counts.shortened), named(counts.cut_fields).c_str());
  }
}

/* Whether a file is the descriptor of a database: the operands may be exchanged. */
bool is_database(const std::string &file) {
  const ElogScope dropped;
  Dbptr db;
  if (file == "-" || dbopen(file.c_str(), "r", &db) != 0) return false;
  dbclose(db);
  return true;
}

int import(const ImportArguments &arguments) {
  if (arguments.format.empty() && is_waveform_input(arguments.file)) {
    return index_waveform_files({arguments.file, arguments.database, arguments.schema,
                                 arguments.quiet, arguments.dry_run, arguments.strict});
  }
  exchange::ImportOptions options;
  options.min_magnitude = arguments.min_magnitude;
  options.keep_origins = arguments.keep_origins;
  options.dry_run = arguments.dry_run;
  options.strict = arguments.strict;
  if (!read_date("--after", arguments.after, options.after) ||
      !read_date("--before", arguments.before, options.before)) {
    return kUsage;
  }

  std::string problem;
  const auto input = exchange::Input::open(arguments.file, problem);
  std::unique_ptr<exchange::Reader> reader;
  bool in_lines = false;
  if (input != nullptr) {
    exchange::Recognised kind = exchange::recognise(input->head());
    if (!arguments.format.empty()) {
      kind.format = exchange::format_of_word(arguments.format);
    }
    if (kind.format != nullptr && kind.format->open_station_reader != nullptr) {
      return import_station_file(*input, kind,
                                 {arguments.database, arguments.schema, arguments.quiet,
                                  arguments.dry_run, arguments.strict});
    }
    in_lines = kind.format != nullptr && kind.format->line_per_event;
    reader = exchange::open_reader(*input, kind, problem);
  }
  if (reader == nullptr) {
    complain(is_database(arguments.file)
                 ? arguments.file +
                       " is a database; the file to import stands before " +
                       "the database"
                 : problem);
    return kFailure;
  }

  Refusals refusals(input->name());
  exchange::Gathering events;
  long read = 0;
  if (!gather(*input, *reader, arguments.quiet, events, refusals, read)) {
    return kFailure;
  }
  exchange::UnplacedCounts without_place;
  for (const exchange::Unplaced &left : reader->without_place()) {
    without_place.add(left.name, left.count);
  }
  if (arguments.strict && (refusals.count() > 0 || !without_place.empty())) {
    refusals.finish();
    if (!without_place.empty()) {
      complain("no place for " + without_place.list().front().name);
    }
    complain("nothing imported (--strict)");
    return kFailure;
  }

  reader.reset();
  ImportTarget target;
  if (!target.open(arguments.database, arguments.schema, arguments.dry_run)) {
    return kFailure;
  }
  exchange::ImportCounts counts;
  Imported imported;
  {
    using Stage = exchange::ImportListener::Stage;
    std::optional<Progress> progress;
    std::optional<StageClock> clock;
    exchange::ImportListener listener;
    listener.begun = [&](Stage stage) {
      clock.reset();
      progress.reset();
      if (stage == Stage::kImporting) {
        progress.emplace("importing", static_cast<long>(events.size()), arguments.quiet,
                         "events");
      } else {
        clock.emplace(stage == Stage::kIndexing
                          ? "looking at what " + arguments.database + " has"
                          : "copying the rows into " + arguments.database,
                      arguments.quiet);
      }
    };
    listener.reached = [&](std::int64_t done) {
      if (progress) progress->reach(static_cast<long>(done));
    };
    listener.refused = [&](std::int64_t line, const std::string &reason) {
      if (progress) progress->wipe();
      refusals.add(line, reason);
    };
    imported =
        exchange::import_events(target.store(), events, options, listener, counts);
  }
  refusals.finish();
  if (imported == Imported::kStrict) {
    if (counts.shortened > 0) {
      complain(std::to_string(counts.shortened) +
               " texts do not fit their fields: " + named(counts.cut_fields));
    }
    if (!counts.without_place.empty()) {
      complain("no place for " + counts.without_place.list().front().name);
    }
    complain("nothing imported (--strict)");
  }
  if (imported != Imported::kYes) return kFailure;
  if (counts.added > 0 || refusals.count() == 0) target.keep();
  if (!arguments.quiet) {
    tell_of(counts, events.superseded(), refusals.count(), counted(read, in_lines),
            arguments.dry_run);
    without_place.add(counts.without_place);
    for (const exchange::Unplaced &left : without_place.list()) {
      std::printf(
          "no place for %s%s\n", left.name.c_str(),
          left.count > 1 ? (" (" + std::to_string(left.count) + ")").c_str() : "");
    }
  }
  return refusals.count() == 0 ? kOk : kFailure;
}

void describe_import(CLI::App &command, ImportArguments &arguments) {
  command
      .add_option("file", arguments.file,
                  "Catalogue, or file or folder of waveforms; - is standard input")
      ->required();
  add_database(command, arguments.database);
  command.add_option("--create", arguments.schema,
                     "Make the database with this schema when it does not exist");
  command
      .add_option("--format", arguments.format,
                  "What the file is, instead of a look at it")
      ->check(CLI::IsMember(words_of_formats()));
  command.add_option("--min-magnitude", arguments.min_magnitude,
                     "Only events of this magnitude and above");
  command.add_option("--after", arguments.after, "Only events at or after this date");
  command.add_option("--before", arguments.before, "Only events before this date");
  command.add_flag("--keep-origins", arguments.keep_origins,
                   "Add a revised solution as a further origin, and prefer it");
  command.add_flag("--strict", arguments.strict,
                   "Import nothing when anything is refused or has no place");
  command.add_flag("-n,--dry-run", arguments.dry_run,
                   "Only say what would be imported");
  add_quiet(command, arguments.quiet);
}

}  // namespace

Command import_command() {
  return make_command<ImportArguments>(
      "import",
      "Adds the events of a catalogue, or updates those that the database has in an "
      "earlier version; all of them or, after a failure, none",
      {"ksdb import --create css3.0 data/aug2015.csv mydb"}, describe_import, import);
}

}  // namespace ksutil::tools
