/* A catalogue that is read wrongly puts wrong earthquakes into a database; one bad line
 * must cost that line and no other. */
#include "tools/ksdb/import/catalogue_csv.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/scratch.h"
#include "tools/ksdb/import/catalogue_rows.h"

namespace ksutil::tools {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

struct ReadResult {
  bool good = false;
  std::vector<CatalogueEvent> events;
  std::vector<RefusedLine> refused;
  std::string problem;
};

ReadResult read(const std::string &text) {
  const ScratchFolder folder;
  ReadResult result;
  result.good = read_catalogue_csv(folder.write("catalogue.csv", text), result.events,
                                   result.refused, result.problem);
  return result;
}

TEST(CatalogueCsv, ReadsColumnsByNameAndSortsByTime) {
  const ReadResult result = read(
      "id,place,time,longitude,latitude,mag,magType,depth,updated,nst,rms\r\n"
      "b2,\"22km NNE of Here, \"\"There\"\"\",2015-08-02T00:00:00.500Z,-152.5,60.25,"
      "1.7,Ml,-0.5,2015-08-07T10:41:44.126Z,7,0.51\r\n"
      "a1,x,2015-08-01T00:00:00Z,10,-5,,,,,,\r\n");
  ASSERT_TRUE(result.good) << result.problem;
  ASSERT_EQ(result.events.size(), 2U);
  EXPECT_THAT(result.refused, testing::IsEmpty());
  const CatalogueEvent &first = result.events[0], &second = result.events[1];
  EXPECT_EQ(first.id, "a1");
  EXPECT_FALSE(has_magnitude(first) || has_errors(first));
  EXPECT_EQ(first.depth, -999.0);
  EXPECT_EQ(second.id, "b2");
  EXPECT_NEAR(second.time, 1438473600.5, 1e-6);
  EXPECT_NEAR(second.updated, 1438944104.126, 1e-6);
  EXPECT_EQ(second.depth, -0.5);
  EXPECT_EQ(second.stations, 7);
  EXPECT_EQ(second.line, 2);
}

TEST(CatalogueCsv, RefusesOneLineForOneFault) {
  const ReadResult result = read(
      "time,latitude,longitude,id,mag\n"
      "2015-08-01T00:00:00Z,91,0,a,1\n"
      "yesterday,1,0,b,1\n"
      "2015-08-01T00:00:00Z,1,0,,1\n"
      "2015-08-01T00:00:00Z,1,0,d,nan\n"
      "2015-08-01T00:00:00Z,1,0\n"
      "2015-08-01T00:00:00Z,1,0,\"f,1\n"
      "2015-08-01T00:00:00Z,1,0,g,1\n");
  ASSERT_TRUE(result.good) << result.problem;
  ASSERT_EQ(result.events.size(), 1U);
  EXPECT_EQ(result.events[0].id, "g");
  std::vector<std::string> reasons;
  for (const RefusedLine &line : result.refused) reasons.push_back(line.reason);
  EXPECT_THAT(reasons,
              ElementsAre("latitude is '91'", "time is 'yesterday'", "id is ''",
                          "mag is 'nan'", "too few columns", HasSubstr("not closed")));
}

TEST(CatalogueCsv, RefusesFilesThatAreNoCatalogue) {
  for (const char *text : {"", "time,latitude,longitude\n", "\x01\x02\n\n"}) {
    const ReadResult result = read(text);
    EXPECT_FALSE(result.good);
    EXPECT_NE(result.problem, "");
  }
  std::vector<CatalogueEvent> events;
  std::vector<RefusedLine> refused;
  std::string problem;
  EXPECT_FALSE(read_catalogue_csv("/nowhere/at/all.csv", events, refused, problem));
  EXPECT_THAT(problem, HasSubstr("/nowhere/at/all.csv"));
}

TEST(EventName, KeepsShortIdsAndTellsLongOnesApart) {
  EXPECT_EQ(event_name("us700063vr", 15), "us700063vr");
  const std::string one = event_name("official20110311054624120_30", 15),
                    other = event_name("official20110311054624120_31", 15);
  EXPECT_EQ(one.size(), 15U);
  EXPECT_EQ(one.substr(0, 9), "official~");
  EXPECT_NE(one, other);
}

}  // namespace
}  // namespace ksutil::tools
