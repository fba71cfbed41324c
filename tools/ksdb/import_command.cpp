#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "tools/common/progress.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/import/importer.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kChunk = 1000;  // events written between two looks at the clock

struct ImportOptions {
  std::string file, database, schema, after, before;
  double min_magnitude = -DBL_MAX;
  bool quiet = false;
};

/* Drops the events outside the window of time and magnitude; false for a bad date. */
bool select_events(const ImportOptions &options, std::vector<CatalogueEvent> &events) {
  double after = -DBL_MAX, before = DBL_MAX;
  if (!options.after.empty() && !parse_date_text(options.after, after)) {
    complain("--after '" + options.after + "' is no date");
    return false;
  }
  if (!options.before.empty() && !parse_date_text(options.before, before)) {
    complain("--before '" + options.before + "' is no date");
    return false;
  }
  std::erase_if(events, [&](const CatalogueEvent &event) {
    return event.time < after || event.time >= before ||
           event.magnitude < options.min_magnitude;
  });
  return true;
}

bool open_or_create(const ImportOptions &options,
                    std::unique_ptr<OpenDatabase> &database) {
  {
    const ElogScope quiet;
    database = std::make_unique<OpenDatabase>(options.database, "r+");
    if (*database || options.schema.empty()) return true;
  }
  if (dbcreate(options.database.c_str(), options.schema.c_str()) != 0) return false;
  database = std::make_unique<OpenDatabase>(options.database, "r+");
  return true;
}

int import(const ImportOptions &options) {
  std::vector<CatalogueEvent> events;
  std::vector<RefusedLine> refused;
  std::string problem;
  if (!read_catalogue_csv(options.file, events, refused, problem)) {
    complain(problem);
    return kFailure;
  }
  for (const RefusedLine &line : refused) {
    complain(options.file + ":" + std::to_string(line.line) + ": " + line.reason);
  }
  if (!select_events(options, events)) return kUsage;

  std::unique_ptr<OpenDatabase> database;
  if (!open_or_create(options, database)) return kFailure;
  if (!*database) {
    complain("cannot open " + options.database + "; --create SCHEMA makes a new one");
    return kFailure;
  }
  Importer importer(database->get());
  if (!importer.ready()) return kFailure;
  ImportCounts counts;
  Progress progress("importing events", static_cast<long>(events.size()),
                    options.quiet);
  for (std::size_t at = 0; at < events.size(); at += kChunk) {
    const std::size_t size = std::min(kChunk, events.size() - at);
    if (!importer.import(std::span(events).subspan(at, size), counts)) return kFailure;
    progress.reach(static_cast<long>(at + size));
  }
  if (!options.quiet) {
    std::printf("%ld added, %ld updated, %ld unchanged, %ld older, %zu lines refused\n",
                counts.added, counts.updated, counts.unchanged, counts.older,
                refused.size());
  }
  return refused.empty() ? kOk : kFailure;
}

}  // namespace

void add_import(CLI::App &app, Action &action) {
  auto options = std::make_shared<ImportOptions>();
  CLI::App *command = app.add_subcommand(
      "import",
      "Adds the events of a comma-separated catalogue (ComCat columns), or updates\n"
      "those that the database has in an earlier version");
  command->add_option("file", options->file, "Catalogue")->required();
  command->add_option("database", options->database, "path/name")->required();
  command->add_option("--create", options->schema,
                      "Make the database with this schema when it does not exist");
  command->add_option("--min-magnitude", options->min_magnitude,
                      "Only events of this magnitude and above");
  command->add_option("--after", options->after, "Only events at or after this date");
  command->add_option("--before", options->before, "Only events before this date");
  command->add_flag("-q,--quiet", options->quiet, "No progress bar, no summary");
  command->callback(
      [options, &action] { action = [options] { return import(*options); }; });
}

}  // namespace ksutil::tools
