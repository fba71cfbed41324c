/* A catalogue that is read wrongly puts wrong earthquakes into a database; one bad line
 * must cost that line and no other. */
#include "formats/exchange/format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tools/scratch.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct ReadResult {
  bool good = false;
  std::vector<Event> events;
  std::vector<std::string> refused;  // "line: reason"
  std::string problem;
  std::vector<std::string> without_place;
};

ReadResult read(const std::string &text) {
  const tools::ScratchFolder folder;
  ReadResult result;
  const auto input = Input::open(folder.write("catalogue.csv", text), result.problem);
  if (input == nullptr) return result;
  const auto reader = open_reader(*input, recognise(input->head()), result.problem);
  if (reader == nullptr) return result;
  for (const Unplaced &left : reader->without_place()) {
    result.without_place.push_back(left.name);
  }
  for (Event event;;) {
    switch (reader->next(event)) {
      case Reader::Got::kRecord:
        result.events.push_back(event);
        break;
      case Reader::Got::kRefused:
        result.refused.push_back(std::to_string(reader->line()) + ": " +
                                 reader->problem());
        break;
      case Reader::Got::kEnd:
        result.good = true;
        return result;
      case Reader::Got::kFailed:
        result.problem = reader->problem();
        return result;
    }
  }
}

std::vector<std::string> ids(const ReadResult &result) {
  std::vector<std::string> found;
  for (const Event &event : result.events) found.push_back(event.id);
  return found;
}

const std::string kTime = "2015-08-01T00:00:00Z";

/* One service writes heights as third coordinates, and depths among the properties. */
TEST(GeojsonReader, TakesTheDepthOfThePropertiesBeforeThatOfThePlace) {
  const auto feature = [](const std::string &third, const std::string &more) {
    return "{\"type\":\"FeatureCollection\",\"features\":[{\"type\":\"Feature\","
           "\"id\":\"a1\",\"geometry\":{\"type\":\"Point\",\"coordinates\":"
           "[-178.5,-18.0," +
           third + "]},\"properties\":{\"time\":\"" + kTime + "\"" + more + "}}]}\n";
  };
  const auto depth = [&](const std::string &third, const std::string &more) {
    const ReadResult result = read(feature(third, more));
    return result.events.empty() ? -999.0 : result.events[0].origins[0].depth;
  };
  EXPECT_EQ(depth("-150.0", ",\"depth\":150.0"), 150.0);
  EXPECT_EQ(depth("12.5", ""), 12.5);
  EXPECT_EQ(depth("12.5", ",\"depth\":null"), 12.5);
  EXPECT_THAT(read(feature("-150.0", ",\"depth\":null")).refused,
              ElementsAre(HasSubstr("depth is -150.0")));
  EXPECT_THAT(read(feature("1", ",\"depth\":-150.0")).refused,
              ElementsAre(HasSubstr("depth is -150.0")));
}

TEST(TableReader, FindsColumnsByName) {
  const ReadResult result = read(
      "id,place,time,longitude,latitude,mag,magType,depth,updated,nst,rms,gap,status,"
      "flavour\r\n"
      "b2,\"22km NNE of Here, \"\"There\"\"\",2015-08-02T00:00:00.500Z,190.5,60.25,"
      "1.7,Ml,-0.5,2015-08-07T10:41:44.126Z,7,0.51,161,reviewed,sweet\r\n"
      "a1,x,2015-08-01T00:00:00Z,10,-5,,,,,,,,,\r\n");
  ASSERT_TRUE(result.good) << result.problem;
  ASSERT_EQ(result.events.size(), 2U);
  EXPECT_THAT(result.refused, IsEmpty());
  EXPECT_THAT(result.without_place, ElementsAre("column flavour"));
  const Event &full = result.events[0], &bare = result.events[1];
  EXPECT_EQ(full.id, "b2");
  EXPECT_EQ(full.line, 2);
  EXPECT_EQ(full.place, "22km NNE of Here, \"There\"");
  EXPECT_NEAR(full.updated, 1438944104.126, 1e-6);
  const Origin &origin = preferred_origin(full);
  EXPECT_NEAR(origin.time, 1438473600.5, 1e-6);
  EXPECT_EQ(origin.lon, -169.5);
  EXPECT_EQ(origin.depth, -0.5);
  EXPECT_EQ(origin.phases, 7);
  EXPECT_EQ(origin.gap, 161.0);
  EXPECT_EQ(origin.status, "reviewed");
  ASSERT_EQ(origin.magnitudes.size(), 1U);
  EXPECT_EQ(origin.magnitudes[0].type, "Ml");
  EXPECT_EQ(bare.id, "a1");
  EXPECT_THAT(preferred_origin(bare).magnitudes, IsEmpty());
  EXPECT_EQ(preferred_origin(bare).depth, -999.0);
}

TEST(TableReader, RefusesOneLineForOneFault) {
  const ReadResult result =
      read("time,latitude,longitude,id,mag\n" +  //
           kTime + ",91,0,a,1\n" +               //
           "yesterday,1,0,b,1\n" +               //
           kTime + ",1,0,,1\n" +                 //
           kTime + ",1,0,d,nan\n" +              //
           kTime + ",1,0\n" +                    //
           kTime + ",1,0,\"f,1\n" +              //
           kTime + ",1,0,g,1\n" +                //
           kTime + ",1,0,h\"h,1\n" +             //
           kTime + ",1,0,\"i\"i,1\n" +           //
           kTime + ",1,0,j,1,1\n" +              //
           kTime + ",1,0,k" + std::string(1, '\0') + ",1\n" + kTime + ",1,0," +
           std::string(70000, 'l') + ",1\n" + kTime + ",1,0,m,1\n" +  //
           kTime + ",1,0,\"n,1");
  ASSERT_TRUE(result.good) << result.problem;
  EXPECT_THAT(ids(result), ElementsAre("g", "m"));
  EXPECT_THAT(
      result.refused,
      ElementsAre("2: latitude is '91'", "3: time is 'yesterday'", "4: id is ''",
                  "5: mag is 'nan'", "6: too few columns", HasSubstr("7: a quote"),
                  HasSubstr("9: a quote"), HasSubstr("10: a quote"),
                  "11: too many columns", "12: id is 'k?'", "13: the line is too long",
                  "15: a quoted text is not closed"));
}

/* A catalogue of which half the days are exchanged looks right at first sight. */
TEST(TableReader, RefusesDatesWhoseDayAndMonthMayBeExchanged) {
  for (const char divider : {',', ';'}) {
    std::string text = "time,latitude,longitude,id,updated\n";
    for (const char *time :
         {"01/02/2020 03:04:05", "1/2/2020", "13/02/2020", "01/02/20", "01-02-20",
          "2020-02-01 03:04:05", "2020/2/1", "01-FEB-2020", "20200201", "2020-032"}) {
      text += std::string(time) + ",1,0," + time + ",\n";
    }
    text += "2020-02-01,1,0,x,02/01/2020\n02/01/2020,1,0,y,no\n";
    std::replace(text.begin(), text.end(), ',', divider);
    const ReadResult result = read(text);
    ASSERT_TRUE(result.good) << result.problem;
    EXPECT_THAT(ids(result), ElementsAre("2020-02-01 03:04:05", "2020/2/1",
                                         "01-FEB-2020", "20200201", "2020-032"));
    const std::string why = ", where day and month may be exchanged: write 2020-02-01";
    EXPECT_THAT(
        result.refused,
        ElementsAre("2: time is '01/02/2020 03:04:05'" + why,
                    "3: time is '1/2/2020'" + why, "4: time is '13/02/2020'" + why,
                    "5: time is '01/02/20'" + why, "6: time is '01-02-20'" + why,
                    "12: updated is '02/01/2020'" + why, "13: updated is 'no'"));
  }
}

TEST(TableReader, ReadsWhatSpreadsheetsWrite) {
  const std::string head = "time,latitude,longitude,id,place\n";
  const std::string row = kTime + ",1.5,0,a,\"two\nlines\"\n";
  const auto with = [](std::string text, char from, const std::string &to) {
    std::string result;
    for (const char c : text) result += c == from ? to : std::string(1, c);
    return result;
  };
  std::string wide_little = "\xff\xfe", wide_big = "\xfe\xff";
  for (const char c : head + row) {
    wide_little += {c, '\0'};
    wide_big += {'\0', c};
  }
  const std::string semicolons = with(head, ',', ";") + kTime + ";1,5;0;a;x;\n";
  for (const std::string &text :
       {head + row, "\xef\xbb\xbf" + head + row, with(head + row, '\n', "\r"),
        with(head + row, '\n', "\r\n"), with(head + row, ',', ";"),
        with(head + row, ',', "\t"), wide_little, wide_big,
        "\n\n" + head + "\n \t\n" + row,
        (head + row).substr(0, (head + row).size() - 1),
        with(head, ',', ";") + kTime + ";1,5;0;a;x\n",
        "\"time\", \"latitude\" ,\"longitude\",\"id\",\"place\"\n" + row}) {
    const ReadResult result = read(text);
    EXPECT_TRUE(result.good) << result.problem << text;
    ASSERT_THAT(ids(result), ElementsAre("a")) << text;
    EXPECT_THAT(result.refused, IsEmpty()) << text;
    EXPECT_EQ(preferred_origin(result.events[0]).lat, 1.5) << text;
    EXPECT_THAT(result.events[0].place, testing::AnyOf("two lines", "two  lines", "x"));
  }
  /* Beyond the first plane of characters, and half of a pair. */
  std::string pairs = "\xff\xfe";
  for (const char c : "time,latitude,longitude,id\n" + kTime + ",1,0,") {
    pairs += {c, '\0'};
  }
  pairs += std::string("\x34\xd8\x1e\xdd\x34\xd8", 6) + std::string("x\0", 2);
  EXPECT_THAT(ids(read(pairs)), ElementsAre("\xf0\x9d\x84\x9e\xef\xbf\xbdx"));
}

TEST(TableReader, ReadsFdsnText) {
  const ReadResult result = read(
      "#EventID | Time | Latitude | Longitude | Depth/km | Author | Catalog | "
      "Contributor | ContributorID | MagType | Magnitude | MagAuthor | "
      "EventLocationName\n"
      "3337497|2011-03-11T05:46:23.2|38.2963|142.498|19.7|ISC|X|ISC|16461282|MW|9.1|"
      "GCMT|NEAR THE \"EAST\" COAST\n");
  ASSERT_TRUE(result.good) << result.problem;
  ASSERT_THAT(ids(result), ElementsAre("3337497"));
  const Origin &origin = preferred_origin(result.events[0]);
  EXPECT_EQ(origin.depth, 19.7);
  EXPECT_EQ(origin.author, "ISC");
  EXPECT_EQ(origin.magnitudes.at(0).author, "GCMT");
  EXPECT_EQ(result.events[0].place, "NEAR THE \"EAST\" COAST");
  EXPECT_THAT(result.without_place,
              ElementsAre("column Catalog", "column ContributorID"));
}

TEST(TableReader, SaysWhatAFileIsThatIsNotRead) {
  const struct {
    std::string text, said;
  } cases[] = {
      {"", "is empty"},
      {" \n\n", "is empty"},
      {"time,latitude,longitude\n", "has no column id"},
      {"\x1f\x8b\x08", "zcat FILE | ksdb import - DATABASE"},
      {"<?xml version=\"1.0\"?>\n<!-- <x> --><q:sheet xmlns:q=\"u\">",
       "XML with the root element sheet"},
      {"<!DOCTYPE html><p>", "an HTML page"},
      {"#Network | Station | Latitude\n", "which does not hold events"},
      {std::string("\x01\x02\n\n"), "a binary file"},
      {"000001D STA  " + std::string(60, '\0'), "miniSEED"},
      {"Dear colleague,\n", "without known column names"},
  };
  for (const auto &c : cases) {
    const ReadResult result = read(c.text);
    EXPECT_FALSE(result.good) << c.text;
    EXPECT_THAT(result.problem, HasSubstr(c.said)) << c.text;
    EXPECT_THAT(result.problem, HasSubstr("catalogue.csv"));
  }
  std::string problem;
  EXPECT_EQ(Input::open("/nowhere/at/all.csv", problem), nullptr);
  EXPECT_THAT(problem, HasSubstr("/nowhere/at/all.csv"));
  EXPECT_EQ(Input::open("/", problem), nullptr);
}

/* Lines that are read again after a fault must not be read again and again. */
TEST(TableReader, ReadsHostileQuotesToTheEnd) {
  for (const char *line :
       {"\"\n", "\"\"\"\n", "\"x\n", "\",\n", "x\"\n", "\",\"\",\r"}) {
    std::string text = "time,latitude,longitude,id\n";
    for (int i = 0; i < 100000; i++) text += line;
    const ReadResult result = read(text);
    EXPECT_TRUE(result.good) << result.problem;
    EXPECT_THAT(result.events, IsEmpty());
    EXPECT_GE(result.refused.size(), 50000U) << line;
  }
}

}  // namespace
}  // namespace ksutil::exchange
