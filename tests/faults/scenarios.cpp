#include "tests/faults/scenarios.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/faults/source_files.h"

namespace fs = std::filesystem;

namespace faults {
namespace {

using Files = std::vector<std::string>;
using Before = std::vector<Arguments>;

/* A folder of the sources stands for all files in it, with its own name; "few.csv" is
 * the beginning of a catalogue, "base" a database that is synchronised. */
const Files kRidge = {"data/ridge*"}, kMlr = {"data/mlr"}, kFew = {"few.csv"},
            kBase = {"base"}, kPoints = {"data/points.txt"},
            kSettings = {"data/settings"};
const Arguments kFewInBase = {"ksdb", "import", "-q", "few.csv", "base"};
const Arguments kHistory = {"kshistory", "add", "--max", "9", "a.hst", "1e9", "2.5"};
const Arguments kGrid = {"ksgrid", "make", "points.txt", "map.grid"};
const Arguments kSacFiles = {"kssac", "from-db", "mlr/mlr"};
const char *const kSac = "MLR.BHZ.2010140.000000.019.sac";

Files both(Files files, const Files &more) {
  files.insert(files.end(), more.begin(), more.end());
  return files;
}

void add_database_commands(std::vector<Scenario> &all) {
  const Files base = both(kFew, kBase);
  all.insert(
      all.end(),
      {{"ksdb-import-create",
        kFew,
        {},
        {"ksdb", "import", "--create", "css3.0", "few.csv", "fresh"},
        Promise::kOneStep},
       {"ksdb-import-sync", base, {}, kFewInBase, Promise::kOneStep},
       {"ksdb-import-again",
        base,
        {kFewInBase},
        {"ksdb", "import", "--keep-origins", "few.csv", "base"},
        Promise::kOneStep},
       {"ksdb-import-bulletin",
        both(kBase, {"data/bulletin/kaikoura.xml"}),
        {},
        {"ksdb", "import", "kaikoura.xml", "base"},
        Promise::kOneStep},
       {"ksdb-import-stations",
        both(kBase, {"tests/fuzz/corpus/stations/full.xml"}),
        {},
        {"ksdb", "import", "full.xml", "base"}},
       {"ksdb-import-waves",
        kMlr,
        {kSacFiles},
        {"ksdb", "import", "--create", "css3.0", kSac, "waves"},
        Promise::kOneStep},
       {"ksdb-add",
        base,
        {kFewInBase},
        {"ksdb", "add", "base", "remark", "commid=1", "lineno=9", "remark=felt"},
        Promise::kOneStep},
       {"ksdb-set",
        base,
        {kFewInBase},
        {"ksdb", "set", "--where", "orid < 4", "base", "origin", "etype=qb"},
        Promise::kOneStep},
       {"ksdb-delete",
        base,
        {kFewInBase},
        {"ksdb", "delete", "--where", "orid < 4", "base", "origin"},
        Promise::kOneStep},
       {"ksdb-copy-replace",
        both(base, kRidge),
        {kFewInBase},
        {"ksdb", "copy", "--quiet", "--replace", "ridge", "base"},
        Promise::kOneStep},
       {"ksdb-dedup",
        base,
        {kFewInBase,
         {"ksdb", "add", "--force", "base", "remark", "commid=1", "lineno=9",
          "remark=felt", "lddate=0"},
         {"ksdb", "add", "--force", "base", "remark", "commid=1", "lineno=9",
          "remark=felt"}},
        {"ksdb", "dedup", "base", "remark"},
        Promise::kOneStep},
       {"ksdb-prefer",
        kRidge,
        {},
        {"ksdb", "prefer", "ridge", "17", "170"},
        Promise::kOneStep},
       {"ksdb-nextid", kRidge, {}, {"ksdb", "nextid", "ridge", "evid"}},
       {"ksdb-verify", kRidge, {}, {"ksdb", "verify", "ridge"}, Promise::kPartial},
       {"ksdb-verify-fix",
        kRidge,
        {},
        {"ksdb", "verify", "--fix", "ridge"},
        Promise::kPartial},
       {"ksdb-export",
        kRidge,
        {},
        {"ksdb", "export", "ridge", "out.quakeml"},
        Promise::kPartial},
       {"ksdb-export-csv",
        kRidge,
        {},
        {"ksdb", "export", "--format", "csv", "ridge"},
        Promise::kPartial},
       {"ksdb-info", kRidge, {}, {"ksdb", "info", "--all", "--json", "ridge"}},
       {"ksdb-list", kRidge, {}, {"ksdb", "list", "ridge", "origin"}},
       {"ksdb-list-join",
        kRidge,
        {},
        {"ksdb", "list", "--json", "--where", "magnitude > 6", "ridge",
         "origin+netmag"}},
       {"ksdb-subset",
        kRidge,
        {},
        {"ksdb", "subset", "--csv", "ridge", "origin", "depth > 5"}},
       {"ksdb-sort", kRidge, {}, {"ksdb", "sort", "ridge", "netmag", "magnitude"}},
       {"ksdb-join", kRidge, {}, {"ksdb", "join", "ridge", "event", "origin"}},
       {"ksdb-join-keys",
        kRidge,
        {},
        {"ksdb", "join", "--left-keys", "prefor", "--right-keys", "orid", "--where",
         "magnitude > 4", "ridge", "event", "netmag"}},
       {"ksdb-group",
        kRidge,
        {},
        {"ksdb", "group", "--aggregate", "mean(magnitude)", "ridge", "netmag", "evid"}},
       {"ksdb-schema", {}, {}, {"ksdb", "schema", "css3.0", "origin"}},
       {"ksdb-plot",
        kRidge,
        {},
        {"ksdb", "plot", "--x", "lon", "--y", "lat", "-o", "map.svg", "ridge",
         "origin"},
        Promise::kPicture}});
}

void add_event_commands(std::vector<Scenario> &all) {
  const Files base = both(both(kFew, kBase), kRidge);
  all.insert(
      all.end(),
      {{"ksevents-list", kRidge, {}, {"ksevents", "list", "ridge"}},
       {"ksevents-list-json",
        base,
        {kFewInBase},
        {"ksevents", "list", "--json", "--sort", "depth", "base"}},
       {"ksevents-show", kRidge, {}, {"ksevents", "show", "ridge", "17"}},
       {"ksevents-show-tree",
        kRidge,
        {},
        {"ksevents", "show", "--tree", "ridge", "17"}},
       {"ksevents-diff", base, {kFewInBase}, {"ksevents", "diff", "base", "ridge"}},
       {"ksevents-plot",
        kRidge,
        {},
        {"ksevents", "plot", "-o", "map.svg", "ridge"},
        Promise::kPicture},
       {"ksevents-plot-event",
        kRidge,
        {},
        {"ksevents", "plot", "-o", "event.png", "ridge", "17"},
        Promise::kPicture}});
}

void add_waveform_commands(std::vector<Scenario> &all) {
  all.insert(
      all.end(),
      {{"kssac-from-db", kMlr, {}, kSacFiles},
       {"kssac-header", kMlr, {kSacFiles}, {"kssac", "header", kSac}},
       {"kssac-dump", kMlr, {kSacFiles}, {"kssac", "dump", "--limit", "10", kSac}},
       {"kssac-set", kMlr, {kSacFiles}, {"kssac", "set", kSac, "T0=12.5", "KT0=S"}},
       {"kssac-swap", kMlr, {kSacFiles}, {"kssac", "swap", kSac, "other.sac"}},
       {"kssac-to-db",
        kMlr,
        {kSacFiles},
        {"kssac", "to-db", "--create", "css3.0", kSac, "sacdb"},
        Promise::kOneStep},
       {"kssac-plot",
        kMlr,
        {kSacFiles},
        {"kssac", "plot", "-o", "a.svg", kSac},
        Promise::kPicture},
       {"kswave-list", kMlr, {}, {"kswave", "list", "mlr/mlr"}},
       {"kswave-get", kMlr, {}, {"kswave", "get", "--chan", "BHZ", "mlr/mlr"}},
       {"kswave-get-mseed",
        kMlr,
        {},
        {"kswave", "get", "--format", "mseed", "mlr/mlr"}},
       {"kswave-get-text",
        kMlr,
        {},
        {"kswave", "get", "--format", "text", "--motion", "V", "--corners",
         "0.02,0.05,10,15", "--chan", "BHZ", "mlr/mlr"}},
       {"kswave-response",
        kMlr,
        {},
        {"kswave", "response", "--count", "5", "--chan", "BHZ", "mlr/mlr"}},
       {"kswave-pick",
        kMlr,
        {},
        {"kswave", "pick", "--chan", "BHZ", "--ratio", "3", "mlr/mlr"},
        Promise::kPartial},
       {"kswave-plot",
        kMlr,
        {},
        {"kswave", "plot", "-o", "traces.svg", "mlr/mlr"},
        Promise::kPicture},
       {"kswave-spectrum",
        kMlr,
        {},
        {"kswave", "spectrum", "-o", "spectrum.svg", "mlr/mlr"},
        Promise::kPicture}});
}

void add_object_commands(std::vector<Scenario> &all) {
  const Files fap = {"data/response/CTA_BHZ.fap"};
  const Arguments merge = {
      "kspf", "merge", "-o", "all.pf", "settings/site.pf", "settings/user.pf"};
  const char *const settings = "settings/server.pf";
  all.insert(
      all.end(),
      {{"ksvector-read",
        kPoints,
        {},
        {"ksvector", "read", "--x", "0", "--y", "2", "points.txt"}},
       {"ksvector-eval",
        fap,
        {},
        {"ksvector", "eval", "--at", "0.5,1,2", "CTA_BHZ.fap"}},
       {"ksvector-stats",
        kPoints,
        {},
        {"ksvector", "stats", "--type", "median", "--x", "0", "--y", "2", "points.txt",
         "points.txt"}},
       {"ksvector-plot",
        fap,
        {},
        {"ksvector", "plot", "-o", "a.svg", "CTA_BHZ.fap"},
        Promise::kPicture},
       {"ksgrid-make", kPoints, {}, kGrid},
       {"ksgrid-make-again",
        kPoints,
        {kGrid},
        {"ksgrid", "make", "--name", "other", "points.txt", "map.grid"}},
       {"ksgrid-info", kPoints, {kGrid}, {"ksgrid", "info", "map.grid"}},
       {"ksgrid-eval",
        kPoints,
        {kGrid},
        {"ksgrid", "eval", "--x", "12.5,13", "--y", "47.9,48", "map.grid"}},
       {"ksgrid-plot",
        kPoints,
        {kGrid},
        {"ksgrid", "plot", "-o", "a.png", "map.grid"},
        Promise::kPicture},
       {"kshistory-add", {}, {}, kHistory, Promise::kHistory},
       {"kshistory-add-more",
        {},
        {kHistory},
        {"kshistory", "add", "a.hst", "1000000060", "3"},
        Promise::kHistory},
       {"kshistory-show", {}, {kHistory}, {"kshistory", "show", "a.hst"}},
       {"kshistory-plot",
        {},
        {kHistory},
        {"kshistory", "plot", "-o", "a.svg", "a.hst"},
        Promise::kPicture},
       {"kspf-get", kSettings, {}, {"kspf", "get", "--json", settings, "magnitudes"}},
       {"kspf-set", kSettings, {}, {"kspf", "set", settings, "offset", "2.5"}},
       {"kspf-insert",
        kSettings,
        {},
        {"kspf", "insert", settings, "magnitudes[0]", "mww 7.0"}},
       {"kspf-delete", kSettings, {}, {"kspf", "delete", settings, "offset"}},
       {"kspf-check",
        kSettings,
        {},
        {"kspf", "check", "--rules", "settings/server.rules", settings}},
       {"kspf-merge", kSettings, {}, merge},
       {"kspf-format", kSettings, {}, {"kspf", "format", "--in-place", settings}},
       {"ksmoment-info",
        {},
        {},
        {"ksmoment", "info", "--plane", "133,72,66", "--mw", "5.3"}},
       {"ksmoment-compare",
        {},
        {},
        {"ksmoment", "compare", "--plane", "133,72,66", "--plane", "140,70,70"}},
       {"ksmoment-plot",
        {},
        {},
        {"ksmoment", "plot", "--plane", "133,72,66", "-o", "ball.svg"},
        Promise::kPicture}});
}

}  // namespace

const std::vector<Scenario> &scenarios() {
  static const std::vector<Scenario> all = [] {
    std::vector<Scenario> made;
    add_database_commands(made);
    add_event_commands(made);
    add_waveform_commands(made);
    add_object_commands(made);
    return made;
  }();
  return all;
}

void prepare(const Scenario &scenario, const Runner &runner) {
  const fs::path to(runner.folder());
  for (const std::string &name : scenario.files) {
    if (name == "few.csv") {
      std::ifstream all(KSUTIL_SOURCE_DIR "/data/aug2015.csv");
      std::ofstream few(to / name);
      std::string line;
      for (int i = 0; i < 7 && std::getline(all, line); i++) few << line << '\n';
    } else if (name == "base") {
      std::ofstream(to / name) << "schema css3.0\nsync yes\n";
    } else {
      copy_sources(name, to.string());
    }
  }
  for (const Arguments &command : scenario.before) {
    const Outcome outcome = runner.run(command, {});
    if (outcome.code == 0) continue;
    std::fprintf(stderr, "%s: %s fails without a fault: %s\n", scenario.name.c_str(),
                 command[1].c_str(), outcome.messages.c_str());
    std::exit(2);
  }
}

}  // namespace faults
