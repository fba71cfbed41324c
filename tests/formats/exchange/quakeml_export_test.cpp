/* QuakeML is what observatories keep and send on: what its export leaves out is lost for
 * whoever gets it, and a file that the schema refuses is read by nobody. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/exchange/quakeml/resource_id.h"
#include "formats/exchange/text/xml_element.h"
#include "tests/formats/exchange/export_support.h"

namespace ksutil::exchange {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Pick pick_of(const std::string &id, const std::string &sta, double time) {
  Pick pick;
  pick.id = id;
  pick.author = "analyst";
  pick.at = {"NZ", sta, "10", "HHZ"};
  pick.time = time;
  pick.time_error = 0.05;
  pick.phase = "P";
  pick.onset = 'e';
  pick.first_motion = 'd';
  pick.azimuth = 210.5;
  pick.azimuth_error = 5.0;
  pick.slowness = 8.25;
  pick.slowness_error = 0.5;
  pick.emergence = 22.0;
  pick.rectilinearity = 0.875;
  pick.amplitude = 12.3;
  pick.period = 0.75;
  pick.snr = 7.5;
  pick.comments = {"weak"};
  return pick;
}

Association association_of(std::int64_t pick, char used, double weight) {
  Association association;
  association.pick = pick;
  association.phase = "Pn";
  association.belief = 0.75;
  association.delta = 3.125;
  association.seaz = 210.25;
  association.esaz = 30.25;
  association.time_residual = -0.125;
  association.azimuth_residual = 2.5;
  association.slowness_residual = -0.5;
  association.emergence_residual = 1.5;
  association.time_used = used;
  association.azimuth_used = 'n';
  association.slowness_used = 'd';
  association.weight = weight;
  association.earth_model = "ak135";
  return association;
}

Origin origin_of(const std::string &id, double time) {
  Origin origin;
  origin.id = id;
  origin.author = "us";
  origin.time = time;
  origin.lat = -42.7373;
  origin.lon = 173.054;
  origin.depth = 15.1125;
  origin.depth_type = 'g';
  origin.phases = 40;
  origin.associated = 44;
  origin.depth_phases = 3;
  origin.rms = 0.875;
  origin.time_error = 1.25;
  origin.depth_error = 3.5;
  origin.major_axis = 12.5;
  origin.minor_axis = 7.25;
  origin.ellipse_strike = 121.5;
  origin.confidence = 0.9;
  origin.covariance = {3.5, 4.25, 9.125, 0.5, 0.25, -0.125, 0.75, -0.0625, 0.5, -0.25};
  origin.gap = 97.0;
  origin.nearest = 0.375;
  origin.status = "reviewed";
  origin.algorithm = "Hypo 71";
  origin.comments = {"depth held"};
  return origin;
}

/* An event with everything that rows can hold.  `id` begins all ids. */
Event full_bulletin(const std::string &id) {
  Event event;
  event.id = id + "event";
  event.author = "us";
  event.type = "qb";
  event.name = "Kaikoura \xc4\x81";
  event.place = "South Island <of> New Zealand & \"more\"";
  event.updated = 1480000000.5;
  event.comments = {"first line", "felt by 1000 people"};
  event.picks = {pick_of(id + "p1", "CRLZ", 1479034977.12345),
                 pick_of(id + "p2", "ODZ", 1479034990.5),
                 pick_of(id + "p3", "MQZ", 1479034991.0)};
  event.picks[1].amplitude = -1.0;  // a period and a ratio without an amplitude
  event.picks[2] = Pick();
  event.picks[2].id = id + "p3";
  event.picks[2].at.station = "MQZ";
  event.picks[2].time = 1479034991.0;
  event.origins = {origin_of(id + "o1", 1479034976.34),
                   origin_of(id + "o2", 1479034975.0)};
  event.preferred = 1;
  event.origins[0].depth_type = 'r';
  event.origins[0].status = "automatic";
  event.origins[0].major_axis = event.origins[0].minor_axis = -1.0;
  event.origins[0].ellipse_strike = -1.0;
  event.origins[0].confidence = 0.0;  // the ellipse is computed from the covariance
  event.origins[0].covariance.xx = 3.50004321;
  Origin &origin = event.origins[1];
  origin.associations = {association_of(0, 'd', 0.75), association_of(1, 'n', 0.5),
                         association_of(2, 'd', -1.0)};
  origin.associated = 44;
  origin.magnitudes.resize(3);
  origin.magnitudes[0] = {id + "m1", "mb", "us", 7.25, 0.125, 40, {"by hand"}};
  origin.magnitudes[1] = {id + "m2", "Mww", "us", 7.81, -1.0, -1, {}};
  origin.magnitudes[2] = {id + "m3", "Mww", "gcmt", 7.81, 0.5, 12, {}};
  event.preferred_magnitude = 1;
  event.origins[0].magnitudes.resize(1);
  event.origins[0].magnitudes[0].id = id + "m0";
  event.origins[0].magnitudes[0].value = 7.5;
  event.origins[0].associations = {association_of(2, 'd', 1.0)};
  event.origins[0].associated = -1;
  origin.station_magnitudes.resize(3);
  for (std::size_t i = 0; i < 3; i++) {
    StationMagnitude &magnitude = origin.station_magnitudes[i];
    magnitude.type = "mb";
    magnitude.author = "us";
    magnitude.at = event.picks[i].at;
    magnitude.magnitude = i == 2 ? -1 : 0;
    magnitude.pick = static_cast<std::int64_t>(i);
    magnitude.phase = "P";
    magnitude.value = 7.0 + 0.125 * static_cast<double>(i);
    magnitude.error = 0.25;
  }
  origin.station_magnitudes[1].used = 'n';
  MomentTensor tensor;
  tensor.id = id + "t1";
  tensor.author = "us";
  tensor.time = 1479034990.0;
  tensor.lat = -42.25;
  tensor.lon = 173.5;
  tensor.depth = 20.5;
  tensor.elements = {3.69e20, 7.6e19, -4.45e20, 2.96e20, -4.69e20, -9.7e19};
  tensor.axes = {6.6e20, 64.0, 308.0, 1.5e19, 10.0, 219.0, -6.8e20, 24.0, 125.0};
  tensor.moment = 7.05e20;
  tensor.mw = 7.81;
  tensor.plane1 = {226.0, 33.0, 141.0};
  tensor.plane2 = {350.5, 70.0, 63.5};
  tensor.double_couple = 95.5;
  tensor.clvd = -4.5;
  tensor.isotropic = 0.0;
  tensor.stations = 40;
  tensor.components = 98;
  tensor.variance_reduction = 87.5;
  tensor.status = "reviewed";
  tensor.algorithm = "W phase";
  tensor.magnitude = 1;
  tensor.comments = {"thrust"};
  origin.tensors = {tensor, MomentTensor()};
  origin.tensors[1].id = id + "t2";
  origin.tensors[1].author = "planes";
  origin.tensors[1].plane1 = {10.0, 20.5, -90.0};
  origin.tensors[1].mw = 6.5;
  return event;
}

constexpr const char *kTables[] = {"event",  "origin",   "origerr",  "netmag",
                                   "stamag", "assoc",    "arrival",  "mt",
                                   "remark", "publicid", "seedcode", "affiliation"};

void expect_round_trip(const std::string &folder, const std::string &schema,
                       const std::string &word) {
  const Exported first = export_text(folder + "/a", word);
  EXPECT_THAT(first.without_place, IsEmpty());
  import_text(folder + "/b", schema, first.text);
  for (const char *table : kTables) {
    /* A comment line names the magid of the preferred magnitude. */
    expect_same_rows(folder + "/a", folder + "/b", table, ids_and());
  }
  EXPECT_EQ(export_text(folder + "/b", word).text, first.text);
}

class QuakeMlRoundTrip : public testing::TestWithParam<const char *> {};

TEST_P(QuakeMlRoundTrip, GivesEveryRowOfAFullBulletin) {
  for (const char *ids : {"quakeml:us.gov/", "id-", "us 1"}) {
    const tools::ScratchFolder folder;
    import_records(folder / "a", GetParam(), {full_bulletin(ids)});
    if (ids == std::string("us 1")) {
      /* No identifier may have blanks: the ids change, and nothing else. */
      import_text(folder / "b", GetParam(), export_text(folder / "a", "quakeml").text);
      expect_same_rows(folder / "a", folder / "b", "arrival", ids_and());
      continue;
    }
    expect_round_trip(folder.path(), GetParam(), "quakeml");
  }
}

INSTANTIATE_TEST_SUITE_P(Schemas, QuakeMlRoundTrip, testing::Values("css3.0", "kbcore"),
                         [](const auto &schema) {
                           return std::string(schema.param == std::string("css3.0")
                                                  ? "Strict"
                                                  : "Wide");
                         });

/* Rows say which station magnitudes count and which ellipses were computed; the text has
 * both, and the ellipses with all their axes. */
TEST(QuakeMlExport, HasUnusedStationMagnitudesAndComputedEllipses) {
  const tools::ScratchFolder folder;
  const auto count = [](const std::string &text, const std::string &part) {
    int found = 0;
    for (std::size_t at = text.find(part); at != text.npos;
         at = text.find(part, at + 1)) {
      found++;
    }
    return found;
  };
  import_records(folder / "a", "kbcore", {full_bulletin("id-")});
  EXPECT_THAT(
      rows_of(folder / "a", "stamag", ids_and()),
      testing::UnorderedElementsAre(HasSubstr("magdef=d "), HasSubstr("magdef=n "),
                                    HasSubstr("magdef=- ")));
  const std::string text = export_text(folder / "a", "quakeml").text;
  EXPECT_EQ(count(text, "<weight>0</weight>"), 1);
  EXPECT_EQ(count(text, "ks:origerr.ellipse=\"computed\""), 1);
  EXPECT_EQ(count(text, "<minHorizontalUncertainty>"), 2);
  EXPECT_EQ(count(text, "<horizontalUncertainty>"), 0);
  const std::string lines = export_text(folder / "a", "jsonl").text;
  EXPECT_EQ(count(lines, "\"sminax\":"), 2);
  EXPECT_EQ(count(lines, "\"sminax\":null"), 0);
  /* A table without magdef: the import says so. */
  ASSERT_EQ(dbcreate((folder / "b").c_str(), "css3.0"), 0);
  Gathering events;
  ASSERT_TRUE(events.add(full_bulletin("id-")));
  const auto store = db::open_store(folder / "b", "r+", 1 << 24);
  ImportCounts counts;
  ASSERT_EQ(import_events(*store, events, {}, {}, counts), Imported::kYes);
  EXPECT_THAT(counts.without_place.list(),
              testing::Contains(testing::Field(
                  &Unplaced::name,
                  "station magnitudes of weight 0, which stamag cannot mark")));
}

/* An origin without a time would refuse the whole event when the text is read. */
TEST(QuakeMlExport, LeavesOutCentroidsWithoutATime) {
  const tools::ScratchFolder folder;
  Event event = full_bulletin("id-");
  event.origins[1].tensors[0].time = kNoTime;
  import_records(folder / "a", "css3.0", {event});
  const Exported exported = export_text(folder / "a", "quakeml");
  EXPECT_EQ(exported.text.find("mt.centroid"), std::string::npos);
  EXPECT_THAT(exported.without_place,
              testing::ElementsAre(
                  testing::Field(&Unplaced::name, "centroids without a time")));
  import_text(folder / "b", "css3.0", exported.text);
  EXPECT_EQ(export_text(folder / "b", "quakeml").text, exported.text);
}

/* A hypocentre that comes back as a centroid is taken for a result of the inversion. */
TEST(QuakeMlExport, GivesNullsOfMechanismsBack) {
  for (const bool with_moment_magnitude : {true, false}) {
    const tools::ScratchFolder folder;
    Event event = full_bulletin("id-");
    MomentTensor &tensor = event.origins[1].tensors[0];
    tensor.time = kNoTime;
    tensor.lat = tensor.lon = tensor.depth = tensor.mw = -999.0;
    if (!with_moment_magnitude) {
      event.origins[1].magnitudes.clear();
      event.origins[1].station_magnitudes.clear();
      event.preferred_magnitude = tensor.magnitude = -1;
    }
    import_records(folder / "a", "css3.0", {event});
    expect_round_trip(folder.path(), "css3.0", "quakeml");
    EXPECT_THAT(rows_of(folder / "b", "mt", {}),
                testing::Contains(testing::AllOf(
                    HasSubstr("clat=-999.0000 "), HasSubstr("cdepth=-999.0000 "),
                    HasSubstr("mw=-999.00 "), HasSubstr("moment= 7.05000e+20 "))));
  }
}

/* The name of an event whose id is longer than its fields is made of the id. */
TEST(QuakeMlExport, TakesTheEndOfALongIdForNoName) {
  const tools::ScratchFolder folder;
  Event named = full_bulletin("quakeml:us.gov/" + std::string(80, 'x') + "/1");
  Event nameless = full_bulletin("quakeml:us.gov/" + std::string(80, 'x') + "/2");
  named.name = "quakeml of a day";
  nameless.name.clear();
  import_records(folder / "a", "css3.0", {named, nameless});
  const std::string text = export_text(folder / "a", "quakeml").text;
  const std::size_t first = text.find("earthquake name");
  EXPECT_NE(first, text.npos);
  EXPECT_EQ(text.find("earthquake name", first + 1), text.npos);
  EXPECT_EQ(text.find("<text>quakeml:~"), text.npos);
  import_text(folder / "b", "css3.0", text);
  EXPECT_EQ(export_text(folder / "b", "quakeml").text, text);
}

/* Some programs give the variance of the depth or of the time alone. */
TEST(QuakeMlExport, GivesVariancesBackThatStandAloneAndCountsHalvesOfEllipses) {
  const tools::ScratchFolder folder;
  Event event = full_bulletin("id-");
  for (Origin &origin : event.origins) {
    origin.rms = origin.horizontal_error = origin.depth_error = origin.time_error =
        -1.0;
    origin.major_axis = origin.minor_axis = origin.ellipse_strike = -1.0;
    origin.confidence = 0.0;
    origin.covariance = {};
  }
  event.origins[0].covariance.zz = 5.0;
  event.origins[1].covariance.tt = 2.0;
  import_records(folder / "a", "css3.0", {event});
  EXPECT_EQ(rows_of(folder / "a", "origerr", ids_and()).size(), 2U);
  expect_round_trip(folder.path(), "css3.0", "quakeml");

  Dbptr db;
  ASSERT_EQ(dbopen((folder / "a").c_str(), "r+", &db), 0);
  db = dblookup(db, nullptr, "origerr", nullptr, nullptr);
  db.record = 0;
  EXPECT_EQ(dbputv(db, "szz", -1.0, "sminax", 3.0, "conf", 0.9, nullptr), 0);
  dbclose(db);
  EXPECT_THAT(
      export_text(folder / "a", "quakeml").without_place,
      testing::UnorderedElementsAre(
          testing::Field(&Unplaced::name, "ellipses without a major axis"),
          testing::Field(&Unplaced::name, "levels of confidence without an error")));
}

/* Fields that only hand-made tables fill are lost with the export. */
TEST(QuakeMlExport, CountsFieldsThatNoRecordHolds) {
  const tools::ScratchFolder folder;
  const std::string name = folder / "a";
  import_records(name, "kbcore", {full_bulletin("id-")});
  const auto row = [&name](const char *table) {
    Dbptr db;
    EXPECT_EQ(dbopen(name.c_str(), "r+", &db), 0);
    db = dblookup(db, nullptr, table, nullptr, nullptr);
    db.record = 0;
    return db;
  };
  EXPECT_THAT(export_text(name, "quakeml").without_record, IsEmpty());
  Dbptr db = row("netmag");
  EXPECT_EQ(dbputv(db, "net", "NZ", "auth", "us", nullptr), 0);
  db.record = 1;
  EXPECT_EQ(dbputv(db, "net", "NZ", "auth", "-", nullptr), 0);
  dbclose(db);
  db = row("arrival");
  EXPECT_EQ(dbputv(db, "stassid", 7L, "fm", ".u", nullptr), 0);
  dbclose(db);
  db = row("assoc");
  EXPECT_EQ(dbputv(db, "commid", 1L, nullptr), 0);
  dbclose(db);
  db = row("stamag");
  EXPECT_EQ(dbputv(db, "delta", 3.5, "magres", -0.25, "mmodel", "veith", "ampid", 3L,
                   "commid", 1L, nullptr),
            0);
  for (const long record : {0L, 1L}) {
    db.record = record;
    EXPECT_EQ(dbputv(db, "arid", -1L, nullptr), 0);
  }
  dbclose(db);
  std::vector<std::string> counted;
  for (const Unplaced &entry : export_text(name, "quakeml").without_record) {
    counted.push_back(std::to_string(entry.count) + " " + entry.name);
  }
  EXPECT_THAT(
      counted,
      testing::UnorderedElementsAre(
          "1 networks of magnitudes (net)",
          "1 networks of magnitudes (net), which become authors",
          "1 groups of arrivals (stassid)", "1 first motions of long periods (fm)",
          "1 comments on associations (commid)",
          "1 distances of station magnitudes (delta)",
          "1 residuals of station magnitudes (magres)",
          "1 models of station magnitudes (mmodel)",
          "1 amplitudes of station magnitudes (ampid)",
          "1 comments on station magnitudes (commid)",
          "2 channels of station magnitudes without an arrival (seedcode)"));
}

TEST(QuakeMlExport, GivesTheShippedDatabasesBack) {
  for (const std::string name : {"aug2015", "ueb/ueb_test", "ridge"}) {
    const tools::ScratchFolder folder;
    const std::string schema = name == "ueb/ueb_test" ? "kbcore" : "css3.0";
    /* The first import has numbered what had no public id. */
    import_text(folder / "a", schema, export_text(kData + name, "quakeml").text);
    expect_round_trip(folder.path(), schema, "quakeml");
  }
}

TEST(QuakeMlExport, HostileRowsGiveWellFormedXml) {
  const tools::ScratchFolder folder;
  const std::string name = folder / "a";
  import_records(name, "css3.0", {full_bulletin("id-")});
  for (const auto &[table, from, to] :
       {std::tuple{"remark", "felt by 1000", "<\x01\xff]]>&\x7f\xc3 x "},
        std::tuple{"arrival", "analyst", "\"<&\x02\xc0'>"},
        std::tuple{"assoc", "Pn", "\xff<"},
        std::tuple{"origin", "Hypo 71", "a/\x03\t//7"},
        std::tuple{"publicid", "id-m2", "\x04 :/\xff"}}) {
    std::string bytes = tools::read_text(name + "." + table);
    const std::size_t at = bytes.find(from);
    ASSERT_NE(at, std::string::npos) << table;
    bytes.replace(at, std::string(from).size(), to);
    test::write_file(name + "." + table, bytes);
  }
  const std::string text = export_text(name, "quakeml").text;
  for (const char byte : {'\x01', '\x02', '\x03', '\x04', '\x7f', '\xff'}) {
    EXPECT_EQ(text.find(byte), std::string::npos);
  }
  import_text(folder / "b", "css3.0", text);
  elog_clear_register(0);
}

TEST(QuakeMlExport, ResourceIdsKeepWhatTheSchemaAllows) {
  for (const char *id : {"smi:local/a", "quakeml:us.anss.org/event/us1000?x=1&y=2",
                         "smi:ch.ethz.sed/event/1"}) {
    EXPECT_TRUE(is_resource_id(id));
    EXPECT_EQ(resource_id(id), id);
  }
  EXPECT_EQ(resource_id("us1000778i"), "smi:local/us1000778i");
  EXPECT_EQ(id_of_resource(resource_id("mydb/orid/17")), "mydb/orid/17");
  for (const char *id : {"two words", "smi:x/y", "/slash", "quakeml:", "ISC:910712",
                         "a*3A", "\xc3\xbc"}) {
    EXPECT_FALSE(is_resource_id(id));
    EXPECT_TRUE(is_resource_id(resource_id(id))) << id << " " << resource_id(id);
    EXPECT_EQ(id_of_resource(resource_id(id)), id);
  }
  EXPECT_EQ(resource_id("ISC:910712"), "smi:local.escaped/ISC*3A910712");
  for (const char *id : {"smi:local.escaped/a*0Ab", "smi:local.escaped/a*",
                         "smi:local.escaped/a*4", "smi:local.escaped/a*G1"}) {
    EXPECT_EQ(id_of_resource(id), id);
  }
}

}  // namespace
}  // namespace ksutil::exchange
