/* One event comes from a table, from a feed and from QuakeML under different ids: as two
 * events it would be located, counted and sent on twice; and two events that only share an
 * id must never become one. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/exchange/second_names.h"
#include "tests/formats/exchange/export_support.h"

namespace ksutil::exchange {
namespace {

using testing::HasSubstr;

const std::string kTable =
    "time,latitude,longitude,depth,mag,magType,id,net,updated\n"
    "2016-11-13T11:02:56.340Z,-42.7373,173.054,15.11,7.8,mww,us1000778i,us,"
    "2017-01-01T00:00:00Z\n";
const std::string kFeed =
    R"({"type":"FeatureCollection","features":[{"type":"Feature","id":"at00","properties":)"
    R"({"mag":7.8,"time":1479034976340,"updated":1483228800000,"magType":"mww","net":"us",)"
    R"("ids":",at00,us1000778i,"},"geometry":{"type":"Point","coordinates":)"
    R"([173.054,-42.7373,15.11]}}]})"
    "\n";

/* `attributes` are those of the element event. */
std::string quakeml(const std::string &attributes) {
  return R"(<?xml version="1.0"?><q:quakeml xmlns:q="http://quakeml.org/xmlns/quakeml/1.2")"
         R"( xmlns="http://quakeml.org/xmlns/bed/1.2")"
         R"( xmlns:catalog="http://anss.org/xmlns/catalog/0.1"><eventParameters)"
         R"( publicID="quakeml:x.y/1"><event )" +
         attributes +
         R"(><preferredOriginID>quakeml:x.y/o1</preferredOriginID>)"
         R"(<preferredMagnitudeID>quakeml:x.y/m2</preferredMagnitudeID>)"
         R"(<preferredFocalMechanismID>quakeml:x.y/f2</preferredFocalMechanismID>)"
         R"(<origin publicID="quakeml:x.y/o1"><time><value>2016-11-13T11:02:56.340Z</value>)"
         R"(</time><latitude><value>-42.7373</value></latitude><longitude><value>173.054)"
         R"(</value></longitude></origin>)"
         R"(<origin publicID="quakeml:x.y/o2"><time><value>2016-11-13T11:02:58.000Z</value>)"
         R"(</time><latitude><value>-42.7</value></latitude><longitude><value>173.0)"
         R"(</value></longitude></origin>)"
         R"(<magnitude publicID="quakeml:x.y/m1"><mag><value>7.5</value></mag><type>mb</type>)"
         R"(<originID>quakeml:x.y/o1</originID></magnitude>)"
         R"(<magnitude publicID="quakeml:x.y/m2"><mag><value>7.8</value></mag><type>mww)"
         R"(</type><originID>quakeml:x.y/o2</originID></magnitude>)"
         R"(<focalMechanism publicID="quakeml:x.y/f1"><triggeringOriginID>quakeml:x.y/o1)"
         R"(</triggeringOriginID><nodalPlanes><nodalPlane1><strike><value>10</value></strike>)"
         R"(<dip><value>20</value></dip><rake><value>30</value></rake></nodalPlane1>)"
         R"(</nodalPlanes></focalMechanism>)"
         R"(<focalMechanism publicID="quakeml:x.y/f2"><triggeringOriginID>quakeml:x.y/o2)"
         R"(</triggeringOriginID><nodalPlanes><nodalPlane1><strike><value>40</value></strike>)"
         R"(<dip><value>50</value></dip><rake><value>60</value></rake></nodalPlane1>)"
         R"(</nodalPlanes></focalMechanism></event></eventParameters></q:quakeml>)"
         "\n";
}

const std::string kQuery =
    R"(publicID="quakeml:earthquake.example.gov/fdsnws/event/1/query?eventid=us1000778i)"
    R"(&amp;format=quakeml")";
const std::string kNumbered = R"(publicID="quakeml:us.anss.org/event/1000778i")";
const std::string kAttributes =
    R"(publicID="quakeml:x.y/e1" catalog:datasource="us" catalog:dataid="us1000778i")"
    R"( catalog:eventsource="us" catalog:eventid="1000778i")";

/* A database that is made by the first import. */
class Database {
 public:
  void import(const std::string &text) {
    if (!made_) {
      made_ = true;
      return import_text(name_, "kbcore", text);
    }
    const tools::ScratchFolder files;
    std::string problem;
    const auto input = Input::open(files.write("text", text), problem);
    const auto reader = open_reader(*input, recognise(input->head()), problem);
    ASSERT_NE(reader, nullptr) << problem;
    Gathering events;
    Event event;
    while (reader->next(event) == Reader::Got::kRecord) ASSERT_TRUE(events.add(event));
    ASSERT_EQ(events.size(), 1u) << reader->problem();
    import_gathered(name_, events);
  }
  std::size_t count(const char *table) const {
    return rows_of(name_, table, {}).size();
  }
  std::vector<std::multiset<std::string>> rows() const {
    std::vector<std::multiset<std::string>> all;
    for (const char *table :
         {"event", "origin", "netmag", "mt", "remark", "publicid"}) {
      all.push_back(rows_of(name_, table, {}));
    }
    return all;
  }
  const std::string &name() const { return name_; }

 private:
  bool made_ = false;
  tools::ScratchFolder folder_;
  const std::string name_ = folder_.path() + "/db";
};

TEST(SecondNames, TablesFeedsAndQuakeMlMeetInOneEventInAnyOrder) {
  const std::vector<std::pair<std::string, std::string>> orders{
      {kTable, quakeml(kQuery)},
      {quakeml(kQuery), kTable},
      {kTable, quakeml(kNumbered)},
      {quakeml(kNumbered), kTable},
      {kTable, quakeml(kAttributes)},
      {quakeml(kAttributes), kTable},
      {kFeed, quakeml(kNumbered)},
      {quakeml(kNumbered), kFeed},
      {quakeml(kQuery), quakeml(kNumbered)},
      {kFeed, kTable}};
  for (const auto &[first, second] : orders) {
    Database database;
    database.import(first);
    database.import(second);
    EXPECT_EQ(database.count("event"), 1u) << first << second;
    const auto rows = database.rows();
    database.import(first);
    database.import(second);
    EXPECT_EQ(database.rows(), rows) << "imported again: " << first << second;
  }
}

TEST(SecondNames, ASharedIdDoesNotJoinEventsOfOtherPlacesOrTimes) {
  std::string elsewhere = kTable, later = kTable;
  elsewhere.replace(elsewhere.find("-42.7373,173.054"), 16, "12.5,40");
  later.replace(later.find("2016-11-13"), 10, "2016-11-14");
  for (const std::string &other : {elsewhere, later}) {
    Database database;
    database.import(other);
    database.import(quakeml(kNumbered));
    EXPECT_EQ(database.count("event"), 2u) << other;
  }
}

TEST(SecondNames, OnlyIdsThatASourceGivesOutAreTaken) {
  EXPECT_EQ(id_in_identifier("quakeml:us.anss.org/event/us1000778i"), "us1000778i");
  EXPECT_EQ(id_in_identifier("quakeml:nn.anss.org/event/00123"), "nn00123");
  EXPECT_EQ(id_in_identifier("quakeml:eu.emsc/event/20230206_0000008"),
            "20230206_0000008");
  EXPECT_EQ(id_in_identifier("smi:ISC/evid=602339374"), "ISC:602339374");
  for (const char *other :
       {"", "quakeml:", "quakeml:a.b/event/e1", "smi:local/us1000778i",
        "smi:a.b/query?eventId=7073641", "smi:a.b/query?eventid=", "smi:ISC/evid=x",
        "us.anss.org/event/1", "quakeml:.anss.org/event/1",
        "smi:a/us.anss.org/event/1"}) {
    EXPECT_EQ(id_in_identifier(other), "") << other;
  }
  EXPECT_EQ(numbered_id("ISC", "602339374"), "ISC:602339374");
  EXPECT_EQ(numbered_id("ISC", "us7"), "");
  EXPECT_EQ(numbered_id("", "602339374"), "");
}

TEST(SecondNames, AnExportGivesTheIdsAndTheChosenMagnitudeAndMechanismBack) {
  Database database, copy;
  database.import(kTable);
  database.import(quakeml(kQuery));
  const std::string text = export_text(database.name(), "quakeml").text;
  EXPECT_THAT(text, HasSubstr("quakeml:x.y/m2</preferredMagnitudeID>"));
  EXPECT_THAT(text, HasSubstr("quakeml:x.y/f2</preferredFocalMechanismID>"));
  copy.import(text);
  expect_same_rows(database.name(), copy.name(), "publicid", ids_and({"lddate"}));
  EXPECT_EQ(export_text(copy.name(), "quakeml").text, text);
}

}  // namespace
}  // namespace ksutil::exchange
