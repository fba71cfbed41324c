/* A catalogue that is sent on loses what an export drops, and nobody looks for it later:
 * what comes back from each format must be the rows that went out, and the rest be named. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "formats/exchange/export/output_file.h"
#include "formats/exchange/text/value_text.h"
#include "formats/exchange/text/xml_element.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "tests/formats/exchange/export_support.h"

namespace ksutil::exchange {
namespace {

using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::Not;

/* A new database with the shipped catalogue, places and origins' states included. */
void make_catalogue(const std::string &name) {
  import_text(name, "css3.0", tools::read_text(kData + "aug2015.csv"));
}

struct Trip {
  const char *word;
  /* What the format has no place for: tables, and fields of all tables. */
  std::set<std::string> tables, fields;
};

class CatalogueRoundTrip : public testing::TestWithParam<Trip> {};

TEST_P(CatalogueRoundTrip, GivesTheSameRowsAndTheSameFile) {
  const Trip &trip = GetParam();
  const tools::ScratchFolder folder;
  make_catalogue(folder / "a");
  const Exported first = export_text(folder / "a", trip.word);
  EXPECT_EQ(first.text, export_text(folder / "a", trip.word).text);
  import_text(folder / "b", "css3.0", first.text);
  for (const char *table :
       {"event", "origin", "origerr", "netmag", "remark", "publicid"}) {
    if (trip.tables.contains(table)) continue;
    expect_same_rows(folder / "a", folder / "b", table, ids_and(trip.fields));
  }
  EXPECT_EQ(first.text, export_text(folder / "b", trip.word).text);
  EXPECT_EQ(first.faults.events + first.faults.rows + first.faults.values, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, CatalogueRoundTrip,
    testing::Values(
        Trip{"csv", {}, {}}, Trip{"quakeml", {"publicid"}, {}}, Trip{"geojson", {}, {}},
        Trip{"fdsn", {"origerr", "remark"}, {"lddate", "ndef", "nsta", "uncertainty"}}),
    [](const auto &trip) { return std::string(trip.param.word); });

/* An event that has everything, once with ids and once without public ones. */
Event full_event(const std::string &id) {
  Event event;
  event.id = id;
  event.author = "GNS";
  event.type = "qb";
  event.place = "off the coast, \"near\" the <pier> & bar | buoy";
  event.updated = 1.6e9;
  event.comments = {"felt by many"};
  Origin origin;
  origin.time = 1262304000.12345;
  origin.lat = -42.5;
  origin.lon = 173.25;
  origin.depth = 12.5;
  origin.rms = 0.25;
  event.origins = {origin, origin};
  event.origins[0].lat = -43.0;
  event.preferred = 1;
  Magnitude small, large;
  small.type = "ML";
  small.value = 4.5;
  large.type = "Mw";
  large.value = 6.25;
  event.origins[1].magnitudes = {small, large};
  return event;
}

/* Bulletins have rows whose ellipse lacks an axis. */
/* A catalogue that goes through several hands must not change on the way: authors that
 * nobody gave, and digits of numbers that are rounded to a round one. */
TEST(CatalogueExport, TheSecondExportIsTheFirst) {
  const tools::ScratchFolder folder;
  const std::string parts =
      "<time><value>2020-01-01T00:00:00.1234567Z</value></time><latitude><value>"
      "1.23456</value></latitude><longitude><value>-2.3456</value></longitude>"
      "<quality><standardError>0.7998</standardError></quality><arrival><pickID>p"
      "</pickID><phase>P</phase><timeResidual>-0.004</timeResidual><distance>1.4997"
      "</distance></arrival></origin>";
  import_text(folder / "a", "kbcore",
              "<q:quakeml xmlns:q=\"http://quakeml.org/xmlns/quakeml/1.2\" "
              "xmlns=\"http://quakeml.org/xmlns/bed/1.2\"><eventParameters "
              "publicID=\"x\"><event publicID=\"e1\"><creationInfo><agencyID>EVA"
              "</agencyID></creationInfo><pick publicID=\"p\"><time><value>"
              "2020-01-01T00:00:20Z</value><uncertainty>2.3202</uncertainty></time>"
              "<waveformID networkCode=\"XX\" stationCode=\"ABC\"/></pick>"
              "<origin publicID=\"o1\">" +
                  parts +
                  "<magnitude publicID=\"m1\"><mag><value>5.996</value></mag><originID>"
                  "o1</originID></magnitude></event></eventParameters></q:quakeml>\n");
  for (const char *word : {"csv", "fdsn", "geojson", "isf", "quakeml"}) {
    const Exported first = export_text(folder / "a", word);
    const std::string again = folder / (std::string("b") + word);
    import_text(again, "kbcore", first.text);
    EXPECT_EQ(export_text(again, word).text, first.text);
  }
}

TEST(CatalogueExport, KeepsAnEllipseWithOneAxis) {
  Event event;
  event.id = "e1";
  event.origins.resize(2);
  for (Origin &origin : event.origins) {
    origin.time = 1.4e9;
    origin.lat = 10.0;
    origin.lon = 20.0;
    origin.author = "ISC";
    origin.major_axis = 12.5;
    origin.confidence = 0.9;
  }
  event.origins[0].id = "o1";
  event.origins[1].id = "o2";
  event.origins[0].ellipse_strike = 75.0;
  for (const char *word : {"isf", "quakeml"}) {
    const tools::ScratchFolder folder;
    import_records(folder / "a", "css3.0", {event});
    import_text(folder / "b", "css3.0", export_text(folder / "a", word).text);
    expect_same_rows(folder / "a", folder / "b", "origerr", ids_and({"lddate"}));
  }
}

TEST(CatalogueExport, SingleSolutionFormatsNameTheRest) {
  const tools::ScratchFolder folder;
  import_records(folder / "a", "css3.0", {full_event("one")});
  for (const char *word : {"csv", "fdsn", "kml"}) {
    const Exported exported = export_text(folder / "a", word);
    for (const char *name : {"further origins", "further magnitudes", "comments"}) {
      EXPECT_THAT(exported.without_place, Contains(Field(&Unplaced::name, name)))
          << word;
    }
    EXPECT_THAT(exported.text, HasSubstr("-42.5"))
        << "the preferred origin of " << word;
    EXPECT_THAT(exported.text, HasSubstr("6.25")) << "its preferred magnitude";
  }
  EXPECT_THAT(export_text(folder / "a", "csv").text,
              HasSubstr("\"off the coast, \"\"near\"\" the <pier> & bar | buoy\""));
  EXPECT_THAT(export_text(folder / "a", "fdsn").text, HasSubstr("& bar   buoy"));
  EXPECT_THAT(export_text(folder / "a", "kml").text,
              HasSubstr("&lt;pier&gt; &amp; bar | buoy"));
}

TEST(CatalogueExport, JsonLinesHoldOneObjectForAnEvent) {
  const tools::ScratchFolder folder;
  import_records(folder / "a", "css3.0", {full_event("one"), full_event("two")});
  std::istringstream lines(export_text(folder / "a", "jsonl").text);
  std::string line;
  int count = 0;
  for (; std::getline(lines, line); count++) {
    const auto event = nlohmann::json::parse(line);
    EXPECT_EQ(event["magnitude"], 6.25);
    EXPECT_EQ(event["origins"].size(), 2U);
    EXPECT_EQ(event["origins"][1]["preferred"], 1);
    EXPECT_EQ(event["origins"][1]["orid"], event["prefor"]);
    EXPECT_EQ(event["origins"][1]["time"], "2010-01-01T00:00:00.12345Z");
    EXPECT_EQ(event["origins"][1]["magnitudes"].size(), 2U);
    EXPECT_EQ(event["origins"][0]["magnitude"], nullptr);
    EXPECT_EQ(event["comments"][0], "felt by many");
  }
  EXPECT_EQ(count, 2);
}

/* The magnitude that stands for an event is the one that the event list shows. */
TEST(CatalogueExport, ShowsTheMagnitudeOfTheEventList) {
  for (const std::string name : {"ueb/ueb_test", "aug2015", "ridge"}) {
    const auto listed = tools::run_program(std::string(KSEVENTS_PROGRAM) +
                                           " list --json " + kData + name);
    std::map<long, nlohmann::json> by_evid;
    for (const auto &event : nlohmann::json::parse(listed.output)) {
      by_evid[event["evid"]] = event;
    }
    std::istringstream lines(export_text(kData + name, "jsonl").text);
    std::string line;
    int count = 0;
    for (; std::getline(lines, line); count++) {
      const auto event = nlohmann::json::parse(line);
      const nlohmann::json &shown = by_evid.at(event["evid"]);
      EXPECT_EQ(event["magnitude"], shown["magnitude"]) << line;
      EXPECT_EQ(event["magtype"], shown["magtype"]) << line;
      EXPECT_EQ(event["prefor"], shown["orid"]) << line;
    }
    EXPECT_GT(count, 0);
  }
}

std::size_t events_in(const Exported &exported) {
  return static_cast<std::size_t>(
      std::count(exported.text.begin(), exported.text.end(), '\n'));
}

TEST(CatalogueSelection, TakesEventsThatFulfilAllConditions) {
  const std::string name = kData + "aug2015";
  EventSelection selection;
  const std::size_t all = events_in(export_text(name, "jsonl", selection));
  selection.min_magnitude = 6.5;
  const std::size_t large = events_in(export_text(name, "jsonl", selection));
  EXPECT_TRUE(large > 0 && large < all);
  selection.min_magnitude = -DBL_MAX;
  selection.where = "magnitude >= 6.5";
  EXPECT_EQ(events_in(export_text(name, "jsonl", selection)), large);
  selection.where = "event.evid == 17 || orid == 18";
  EXPECT_EQ(events_in(export_text(name, "jsonl", selection)), 2U);
  selection.where = "time >= \"2015-08-25\"";
  const std::size_t late = events_in(export_text(name, "jsonl", selection));
  selection.where.clear();
  ASSERT_TRUE(parse_date_text("2015-08-25", selection.after));
  EXPECT_EQ(events_in(export_text(name, "jsonl", selection)), late);
  selection.after = -DBL_MAX;
  selection.evids = {17, 99999};
  const Exported one = export_text(name, "jsonl", selection);
  EXPECT_EQ(events_in(one), 1U);
  EXPECT_EQ(one.faults.missing, std::vector<std::int64_t>{99999});
}

TEST(CatalogueSelection, RefusesWhatIsNoCondition) {
  const auto store = db::open_store(kData + "aug2015", "r", 1 << 24);
  for (const char *text : {"magnitude >", "flavour == 3", "auth", "netmag.nsta > 3"}) {
    EventSelection selection;
    selection.where = text;
    std::string problem;
    EXPECT_EQ(EventSource::open(*store, selection, problem), nullptr) << text;
    EXPECT_THAT(problem, HasSubstr(text));
  }
}

/* Replaces bytes of a table file, as a faulty program or disk would. */
void spoil(const std::string &path, const std::string &from, const std::string &to) {
  std::string bytes = tools::read_text(path);
  const std::size_t at = bytes.find(from);
  ASSERT_NE(at, std::string::npos) << path;
  bytes.replace(at, from.size(), to);
  test::write_file(path, bytes);
}

bool is_xml(const std::string &text) {
  const tools::ScratchFolder folder;
  std::string problem;
  const auto input = Input::open(folder.write("x", text), problem);
  XmlReader reader(*input);
  for (;;) {
    const XmlReader::Got got = reader.next();
    if (got == XmlReader::Got::kDone) return true;
    if (got == XmlReader::Got::kFailed) return false;
  }
}

/* Database files are edited by hand and written by programs of all ages. */
TEST(HostileRows, GiveValidFiles) {
  const tools::ScratchFolder folder;
  const std::string name = folder / "a";
  import_records(name, "css3.0", {full_event("one"), full_event("two")});
  spoil(name + ".remark", "off the coast", "o\x01\xff\t\xed\xa0\x80 co\x7f\xc3t");
  spoil(name + ".event", "GNS", "]]>");
  spoil(name + ".netmag", "   4.50", "   4.5x");
  spoil(name + ".origerr", "  0.2500", "  1e+300");
  spoil(name + ".publicid", "two", "t|\"");
  for (const char *word : {"csv", "fdsn", "jsonl", "kml"}) {
    const Exported exported = export_text(name, word);
    EXPECT_GT(exported.faults.values, 0) << word;
    EXPECT_THAT(exported.text, HasSubstr("\xef\xbf\xbd")) << word;
    for (const char byte : {'\x01', '\xff', '\x7f'}) {
      EXPECT_EQ(exported.text.find(byte), std::string::npos) << word;
    }
    if (word == std::string("kml")) {
      EXPECT_TRUE(is_xml(exported.text));
    }
    if (word == std::string("csv")) {
      import_text(folder / "b", "css3.0", exported.text);
    }
    if (word != std::string("jsonl")) continue;
    std::istringstream lines(exported.text);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(nlohmann::json::accept(line)) << line;
    }
  }
  elog_clear_register(0);
}

TEST(HostileRows, LeaveOutEventsAndReferencesAndSayHowMany) {
  const tools::ScratchFolder folder;
  const std::string name = folder / "a";
  import_records(name, "css3.0",
                 {full_event("one"), full_event("two"), full_event("three")});
  const std::string event = tools::read_text(name + ".event");
  spoil(name + ".event", event.substr(0, 33), event.substr(0, 25) + "     999");
  spoil(name + ".origin", " -42.5000  173.2500", "-999.0000  173.2500");
  const Exported exported = export_text(name, "jsonl");
  EXPECT_EQ(exported.faults.references, 1) << "the prefor of the first event";
  EXPECT_EQ(exported.faults.rows, 1) << "an origin without a place";
  EXPECT_EQ(events_in(exported), 3U);
  elog_clear_register(0);
}

TEST(OutputFile, IsThereWhenItIsWhole) {
  const tools::ScratchFolder folder;
  const std::string path = folder.write("out", "old");
  std::string problem;
  {
    const auto output = OutputFile::open(path, problem);
    ASSERT_NE(output, nullptr);
    EXPECT_TRUE(output->put("new"));
    EXPECT_EQ(tools::read_text(path), "old");
  }
  EXPECT_EQ(tools::read_text(path), "old") << "an unfinished file is dropped";
  std::filesystem::create_symlink(path, folder / "link");
  const auto output = OutputFile::open(folder / "link", problem);
  ASSERT_NE(output, nullptr);
  EXPECT_TRUE(output->put("new") && output->finish());
  EXPECT_EQ(tools::read_text(path), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
  const auto entries = std::filesystem::directory_iterator(folder.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 2) << "no file is left over";
}

TEST(OutputFile, FullDiskLeavesTheOldFile) {
  const tools::ScratchFolder folder;
  const std::string path = folder.write("out", "old");
  FileCalls calls = system_file_calls();
  calls.write = [](int, const void *, std::size_t) -> ssize_t {
    errno = ENOSPC;
    return -1;
  };
  const ScopedFileCalls full(calls);
  std::string problem;
  auto output = OutputFile::open(path, problem);
  ASSERT_NE(output, nullptr);
  EXPECT_FALSE(output->put("new"));
  EXPECT_FALSE(output->finish());
  EXPECT_THAT(output->problem(), HasSubstr("No space left"));
  output.reset();
  EXPECT_EQ(tools::read_text(path), "old");
  const auto entries = std::filesystem::directory_iterator(folder.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST(ValueText, ReadsBackAndTellsUtf8) {
  for (const double value : {0.1, 1e-4, -123456.789, 4.56e25, 1e-30, 28.13166}) {
    double back = 0.0;
    ASSERT_TRUE(parse_real(number_text(value), back));
    EXPECT_EQ(back, value);
  }
  EXPECT_EQ(number_text(-0.0), "0");
  EXPECT_EQ(number_text(0.0001), "0.0001");
  EXPECT_EQ(scaled_text(10.1234, 1000.0), "10123.4");
  EXPECT_EQ(utc_text(0.0), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(utc_text(1262304000.12345), "2010-01-01T00:00:00.12345Z");
  std::string clean;
  EXPECT_EQ(append_clean("z\xc3\xbc\xe2\x82\xac\xf0\x9f\x8c\x8d", clean), 0);
  EXPECT_EQ(append_clean("\xc0\xaf\xf5\xed\xa0\x80\xe2\x82", clean), 8);
}

}  // namespace
}  // namespace ksutil::exchange
