/* A bulletin has many kinds of rows that refer to each other.  A second import that adds
 * some of them again, or a revision that gives them new ids, breaks what analysts and other
 * programs have built on them. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "formats/exchange/error_ellipse.h"
#include "formats/exchange/event_types.h"
#include "formats/exchange/import/remark_lines.h"
#include "tests/formats/exchange/importer_fixture.h"
#include "tests/support/register.h"

namespace ksutil::exchange {
namespace {

using testing::HasSubstr;
using testing::Not;
using tools::OpenDatabase;

constexpr char *kEnd = nullptr;

Pick pick_at(const std::string &id, const std::string &sta, double time) {
  Pick pick;
  pick.id = id;
  pick.at = {"NZ", sta, "10", "HHZ"};
  pick.time = time;
  pick.phase = "P";
  pick.onset = 'i';
  pick.first_motion = 'c';
  pick.author = "an";
  return pick;
}

Origin origin_of(const std::string &id, const std::string &author, double time) {
  Origin origin;
  origin.id = id;
  origin.author = author;
  origin.time = time;
  origin.lat = -42.0;
  origin.lon = 173.0;
  origin.depth = 15.0;
  return origin;
}

/* An event with two agencies' origins; `prefix` begins all ids, none are given for "". */
Event bulletin(const std::string &prefix) {
  const auto id = [&](const char *name) { return prefix.empty() ? "" : prefix + name; };
  Event event;
  event.id = prefix + "event";
  event.type = "quarry blast";
  event.name = "Kaikoura";
  event.picks = {pick_at(id("p1"), "CRLZ", 1000.0), pick_at(id("p2"), "ODZ", 1010.0)};
  event.picks[1].comments = {"clipped later"};
  event.origins = {origin_of(id("o1"), "us", 990.0), origin_of(id("o2"), "isc", 991.0)};
  event.preferred = 1;
  Origin &origin = event.origins[1];
  origin.magnitudes.resize(2);
  origin.magnitudes[0] = {id("m1"), "mb", "isc", 5.5, 0.1, 20, {}};
  origin.magnitudes[1] = {id("m2"), "Mww", "us", 6.25, -1.0, -1, {"from the W phase"}};
  event.preferred_magnitude = 1;
  origin.associations.resize(2);
  origin.associations[0].pick = 0;
  origin.associations[0].phase = "Pn";
  origin.associations[0].time_residual = -0.25;
  origin.associations[0].time_used = 'd';
  origin.associations[1].pick = 1;
  origin.associations[1].phase = "Pg";
  origin.station_magnitudes.resize(2);
  for (StationMagnitude &magnitude : origin.station_magnitudes) {
    magnitude.type = "mb";
    magnitude.at = event.picks[0].at;
    magnitude.magnitude = 0;
    magnitude.pick = 0;
    magnitude.value = 5.25;
  }
  origin.station_magnitudes[1].value = 5.75;
  MomentTensor tensor;
  tensor.id = id("t1");
  tensor.author = "us";
  tensor.status = "reviewed";
  tensor.double_couple = 90.0;
  tensor.magnitude = 1;
  tensor.elements = {1e18, -2e18, 1e18, 5e17, -5e17, 1e17};
  origin.tensors = {tensor, MomentTensor()};
  origin.tensors[1].author = "planes";
  origin.tensors[1].plane1 = {10.0, 20.0, 90.0};
  origin.comments = {"located by hand"};
  return event;
}

class BulletinImport : public testing::TestWithParam<const char *>,
                       protected ImportedDatabase {
 protected:
  void SetUp() override { create("kbcore"); }
  void TearDown() override { elog_clear_register(0); }
  void create(const char *schema) { ASSERT_EQ(dbcreate(name_.c_str(), schema), 0); }
  ImportCounts import(const std::vector<Event> &events,
                      const std::string &name = "") const {
    Gathering gathering;
    for (const Event &event : events) EXPECT_TRUE(gathering.add(event));
    const auto store = db::open_store(name.empty() ? name_ : name, "r+", 1 << 26);
    ImportCounts counts;
    ImportListener listener;
    listener.refused = [](std::int64_t, const std::string &why) {
      ADD_FAILURE() << why;
    };
    EXPECT_EQ(import_events(*store, gathering, {}, listener, counts), Imported::kYes);
    return counts;
  }
  Dbptr row(const OpenDatabase &database, const char *name, long record) const {
    Dbptr row = database.table(name);
    row.record = record;
    return row;
  }
};

TEST_P(BulletinImport, ComesInOnceWithAllItsRows) {
  const Event event = bulletin(GetParam());
  EXPECT_EQ(import({event}).added, 1);
  const std::vector<std::pair<const char *, long>> expected{
      {"event", 1},   {"origin", 2}, {"netmag", 2},   {"stamag", 2},     {"mt", 2},
      {"arrival", 2}, {"assoc", 2},  {"seedcode", 2}, {"affiliation", 2}};
  for (const auto &[name, count] : expected) EXPECT_EQ(rows(name), count) << name;
  for (const char *line : {"located by hand", "from the W phase", "clipped later",
                           "name: Kaikoura", "preferred magnitude: magid 2"}) {
    EXPECT_THAT(table("remark"), HasSubstr(line));
  }
  const std::string before = all_tables();
  const ImportCounts again = import({event});
  EXPECT_EQ(again.unchanged, 1);
  EXPECT_TRUE(again.without_place.empty());
  EXPECT_EQ(all_tables(), before);

  const OpenDatabase database(name_, "r");
  long prefor = 0, orid = 0, arid = 0, magid = 0;
  double magnitude = 0.0;
  char sta[16], chan[16], fm[8], phase[16], used[4], auth[32], mode[4];
  EXPECT_EQ(dbgetv(row(database, "event", 0), "prefor", &prefor, kEnd), 0);
  EXPECT_EQ(dbgetv(row(database, "origin", 1), "orid", &orid, "auth", auth, kEnd), 0);
  EXPECT_EQ(prefor, orid);
  EXPECT_STREQ(auth, "isc");
  EXPECT_EQ(dbgetv(row(database, "arrival", 0), "sta", sta, "chan", chan, "fm", fm,
                   "arid", &arid, kEnd),
            0);
  EXPECT_EQ(std::string(sta) + " " + chan + " " + fm, "CRLZ HHZ10 c.");
  long of = 0;
  EXPECT_EQ(dbgetv(row(database, "assoc", 0), "arid", &of, "orid", &orid, "phase",
                   phase, "timedef", used, kEnd),
            0);
  EXPECT_EQ(of, arid);
  EXPECT_EQ(orid, prefor);
  EXPECT_EQ(std::string(phase) + used, "Pnd");
  EXPECT_EQ(dbgetv(row(database, "stamag", 1), "magid", &magid, "arid", &of,
                   "magnitude", &magnitude, kEnd),
            0);
  EXPECT_EQ(std::pair(magid, of), std::pair(1L, arid));
  EXPECT_EQ(magnitude, 5.75);
  EXPECT_EQ(dbgetv(row(database, "mt", 0), "magid", &magid, "evalmode", mode, kEnd), 0);
  EXPECT_EQ(magid, 2);
  EXPECT_STREQ(mode, "m");
  double element = 0.0;
  EXPECT_EQ(dbgetv(row(database, "mt", 1), "mrr", &element, kEnd), 0);
  EXPECT_EQ(element, -999.0);
}

TEST_P(BulletinImport, ARevisionChangesRowsInPlaceAndLeavesThoseOfOthers) {
  Event event = bulletin(GetParam()), other = bulletin("other/");
  for (Pick &pick : other.picks) pick.time += 5000.0;
  import({event, other});
  const std::string others = table("arrival").substr(table("arrival").size() / 2);
  Origin &origin = event.origins[1];
  origin.depth = 20.0;
  origin.associations[0].time_residual = 1.5;
  origin.station_magnitudes[1].value = 5.5;
  origin.associations.pop_back();
  origin.tensors[0].double_couple = 80.0;
  origin.comments = {"located again"};
  EXPECT_EQ(import({event}).updated, 1);
  EXPECT_EQ(rows("origin"), 4);
  EXPECT_EQ(rows("assoc"), 4) << "what a revision lacks stays";
  EXPECT_EQ(rows("mt"), 4);
  EXPECT_EQ(rows("stamag"), 4);
  EXPECT_THAT(table("assoc"), HasSubstr("1.500 d"));
  EXPECT_THAT(table("stamag"), HasSubstr("5.50"));
  EXPECT_THAT(table("remark"), HasSubstr("located again"));
  EXPECT_THAT(table("arrival"), HasSubstr(others));
}

INSTANTIATE_TEST_SUITE_P(Ids, BulletinImport, testing::Values("a/", ""),
                         [](const auto &values) {
                           return *values.param == 0 ? "Without" : "With";
                         });

/* A centre sends its products as they come to be, each with the event and its own origin:
 * the order of arrival must not decide what is kept. */
TEST_F(BulletinImport, AnOlderVersionAddsTheOriginsThatAreNew) {
  Event late = bulletin("a/"), early = bulletin("a/");
  late.updated = 2e9;
  early.updated = 1.9e9;
  import({late});
  const std::string event = table("event"), mt = table("mt");
  EXPECT_EQ(import({early}).older, 1);
  early.origins.push_back(origin_of("a/o3", "third", 992.0));
  early.origins[1].depth = 99.0;
  early.preferred = 2;
  early.preferred_magnitude = -1;
  EXPECT_EQ(import({early}).updated, 1);
  EXPECT_EQ(rows("origin"), 3);
  EXPECT_THAT(table("origin"), Not(HasSubstr(" 99.0000")));
  EXPECT_EQ(table("event"), event);
  EXPECT_EQ(table("mt"), mt);
  EXPECT_EQ(import({early}).older, 1);
  /* A mechanism of an origin that is there. */
  early.origins[1].tensors[0].id = "a/t0";
  EXPECT_EQ(import({early}).updated, 1);
  EXPECT_EQ(rows("mt"), 3);
  EXPECT_EQ(rows("netmag"), 2);
  EXPECT_EQ(import({early}).older, 1);
}

TEST_F(BulletinImport, ASuccessiveSolutionStaysBesideTheEarlierOne) {
  Event event = bulletin("a/");
  import({event});
  event.origins = {origin_of("a/o4", "us", 990.5)};
  event.preferred = 0;
  event.preferred_magnitude = -1;
  EXPECT_EQ(import({event}).updated, 1);
  EXPECT_EQ(rows("origin"), 3);
  const OpenDatabase database(name_, "r");
  long prefor = 0, orid = 0;
  EXPECT_EQ(dbgetv(row(database, "event", 0), "prefor", &prefor, kEnd), 0);
  EXPECT_EQ(dbgetv(row(database, "origin", 2), "orid", &orid, kEnd), 0);
  EXPECT_EQ(prefor, orid);
}

/* What a field holds of a type must still tell the row. */
TEST_F(BulletinImport, MagnitudesWithoutIdsAreKnownByTheirTypes) {
  Event event = bulletin("");
  event.origins.resize(1);
  event.preferred = 0;
  event.preferred_magnitude = -1;
  auto &magnitudes = event.origins[0].magnitudes;
  for (const char *type : {"", "", "mb_Lg(nuclear)", "Ml", "Ml"}) {
    magnitudes.emplace_back().type = type;
    magnitudes.back().value = 4.0 + 0.25 * static_cast<double>(magnitudes.size());
  }
  import({event});
  const std::string before = all_tables();
  EXPECT_EQ(rows("netmag"), 5);
  EXPECT_EQ(import({event}).unchanged, 1);
  EXPECT_EQ(all_tables(), before);
}

TEST_F(BulletinImport, TheNullTextIsNoId) {
  Event event = bulletin("a/");
  event.id = "-";
  Gathering gathering;
  ASSERT_TRUE(gathering.add(event));
  const auto store = db::open_store(name_, "r+", 1 << 26);
  ImportCounts counts;
  EXPECT_EQ(import_events(*store, gathering, {}, {}, counts), Imported::kYes);
  EXPECT_EQ(counts.refused, 1);
  EXPECT_EQ(table("event"), "");
}

/* Two events of one file may name the same pick or origin. */
TEST_F(BulletinImport, OneIdIsOneRow) {
  Event one = bulletin("a/"), two = bulletin("a/");
  two.id = "b";
  two.origins[0].id = "a/other";
  two.preferred = 0;
  two.preferred_magnitude = -1;
  const ImportCounts counts = import({one, two});
  EXPECT_EQ(counts.added, 2);
  EXPECT_EQ(rows("arrival"), 2);
  EXPECT_EQ(rows("origin"), 3);
  EXPECT_FALSE(counts.without_place.empty());
  const std::string before = all_tables();
  EXPECT_EQ(import({one, two}).unchanged, 2);
  EXPECT_EQ(all_tables(), before);
}

TEST_F(BulletinImport, AnEventThatIsRefusedLeavesNoIdsAndCodesBehind) {
  Event early = bulletin("a/"), good = bulletin("a/");
  early.origins[0].time = -1.1e10;
  early.id = "early";
  early.preferred = 0;
  early.preferred_magnitude = -1;
  Gathering gathering;
  ASSERT_TRUE(gathering.add(early) && gathering.add(good));
  const auto store = db::open_store(name_, "r+", 1 << 26);
  ImportCounts counts;
  EXPECT_EQ(import_events(*store, gathering, {}, {}, counts), Imported::kYes);
  EXPECT_EQ(counts.refused, 1);
  EXPECT_EQ(counts.added, 1);
  EXPECT_EQ(rows("arrival"), 2);
  EXPECT_EQ(rows("seedcode"), 2);
  EXPECT_EQ(rows("affiliation"), 2);
  EXPECT_THAT(table("arrival"), HasSubstr(" 1 ")) << "a refused event takes no id";
}

TEST_F(BulletinImport, ValuesBeyondTheirFieldsAreCountedAndNull) {
  Event event = bulletin("a/");
  event.picks[0].amplitude = 1e15;
  event.origins[1].phases = 123456;
  const ImportCounts counts = import({event});
  EXPECT_EQ(counts.added, 1);
  std::vector<std::string> names;
  for (const Unplaced &left : counts.without_place.list()) names.push_back(left.name);
  EXPECT_THAT(names, testing::UnorderedElementsAre("arrival.amp beyond its range",
                                                   "origin.ndef beyond its range"));
  EXPECT_EQ(test::taken_messages(), "");
}

/* seedcode decides what a channel is called. */
TEST_F(BulletinImport, StationCodesFollowSeedcode) {
  {
    const OpenDatabase database(name_, "r+");
    ASSERT_GE(dbaddv(database.table("seedcode"), "sta", "CHCH", "chan", "SHZ", "net",
                     "NZ", "seedsta", "CRLZ", "seedchan", "HHZ", "loc", "10", kEnd),
              0);
    ASSERT_GE(dbaddv(database.table("affiliation"), "net", "NZ", "sta", "CHCH", kEnd),
              0);
  }
  import({bulletin("a/")});
  EXPECT_EQ(rows("seedcode"), 2);
  EXPECT_EQ(rows("affiliation"), 2);
  EXPECT_THAT(table("arrival"), HasSubstr("CHCH"));
  EXPECT_THAT(table("assoc"), HasSubstr("CHCH"));
  EXPECT_THAT(table("stamag"), HasSubstr("CHCH"));
  EXPECT_THAT(table("arrival"), Not(HasSubstr("CRLZ")));
}

/* A table network that lacks the networks of new channels would leave dangling references;
 * a database that has none does not get one from picks. */
TEST_F(BulletinImport, NetworksOfChannelsAreEnteredWhereTheTableIs) {
  import({bulletin("a/")});
  EXPECT_EQ(rows("network"), 0);
  ASSERT_GE(dbaddv(OpenDatabase(name_, "r+").table("network"), "net", "YY", kEnd), 0);
  Event other = bulletin("b/");
  other.picks[0].at = {"ZZ", "ABC", "", "BHZ"};
  import({other});
  EXPECT_THAT(table("network"), testing::AllOf(HasSubstr("ZZ"), HasSubstr("NZ")));
  EXPECT_EQ(rows("network"), 3);
}

TEST_F(BulletinImport, TheEllipseComesFromTheCovarianceWhenItIsNotGiven) {
  Event event = bulletin("a/");
  Covariance &covariance = event.origins[1].covariance;
  covariance.xx = 4.0;
  covariance.yy = 1.0;
  covariance.zz = 9.0;
  covariance.xy = covariance.xz = covariance.yz = 0.0;
  event.origins[1].confidence = 0.9;
  import({event});
  const OpenDatabase database(name_, "r");
  double major = 0.0, minor = 0.0, strike = 0.0, depth = 0.0, conf = 0.0;
  EXPECT_EQ(dbgetv(row(database, "origerr", 0), "smajax", &major, "sminax", &minor,
                   "strike", &strike, "sdepth", &depth, "conf", &conf, kEnd),
            0);
  /* Tables of chi-square: 4.605 with two degrees of freedom, 2.706 with one. */
  EXPECT_NEAR(major, 2.0 * std::sqrt(4.605), 1e-3);
  EXPECT_NEAR(minor, std::sqrt(4.605), 1e-3);
  EXPECT_EQ(strike, 0.0);
  EXPECT_NEAR(depth, 3.0 * std::sqrt(2.706), 1e-3);
  EXPECT_EQ(conf, 0.9);
  EXPECT_THAT(table("remark"), HasSubstr("ellipse: computed from the covariance"));
}

TEST(ErrorEllipse, TurnsEllipsoidsIntoCovariances) {
  EXPECT_NEAR(chi_square(3, 0.9), 6.251, 1e-3);
  EXPECT_EQ(chi_square(2, 1.0), 0.0);
  /* The longest axis straight down, the second north-east. */
  const Covariance down = covariance_of({10.0, 3.0, 1.0, 90.0, 45.0, 90.0}, 0.9);
  EXPECT_NEAR(down.zz * 6.251, 100.0, 0.1);
  EXPECT_NEAR(down.xz, 0.0, 1e-9);
  EXPECT_NEAR((down.xx + down.yy) * 6.251, 10.0, 0.01);
  /* Flat and turned: the ellipse of the map is the ellipsoid's. */
  const Ellipse flat =
      ellipse_of(covariance_of({4.0, 2.0, 1.0, 0.0, 30.0, 0.0}, 0.9), 0.9);
  EXPECT_NEAR(flat.strike, 30.0, 1e-6);
  EXPECT_NEAR(flat.major / flat.minor, 2.0, 1e-9);
  EXPECT_NEAR(flat.major, 4.0 * std::sqrt(4.605 / 6.251), 1e-3);
}

TEST(RemarkLines, DivideCommentsAtBlanksAndBetweenCharacters) {
  const auto lines =
      comment_lines({"one two three\nfour\r\n\x01", "\xc3\xa9\xc3\xa9\xc3\xa9"}, 5);
  std::vector<std::string> texts;
  for (const RemarkLine &line : lines) texts.push_back(line.text);
  EXPECT_THAT(texts, testing::ElementsAre("one", "two", "three", "four",
                                          "\xc3\xa9\xc3\xa9", "\xc3\xa9"));
}

TEST(EventTypes, GoBothWays) {
  for (const char *code : {"eq", "qb", "nu", "rb", "iq", "none"}) {
    EXPECT_EQ(event_type_code(event_type_word(code)), code);
  }
  EXPECT_EQ(event_type_code("qb"), "qb");
  /* Codes of IMS, but those that are codes of ours as well ("me", "fi"). */
  EXPECT_EQ(event_type_code("ke"), "eq");
  EXPECT_EQ(event_type_code("sh"), "cx");
  for (const char *same : {"me", "fi", "uk", "zz", "local"}) {
    EXPECT_EQ(event_type_code(same), same);
  }
  EXPECT_EQ(event_type_word("r"), "");
}

}  // namespace
}  // namespace ksutil::exchange
