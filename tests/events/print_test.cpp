/* Prints and difference lines are read by people and by scripts that pick values out of
 * them: a shifted column or a renamed field breaks the scripts silently. */
#include <gtest/gtest.h>

#include "events/evclient.h"
#include "events/evserver.h"
#include "events/records/internal/print.h"
#include "events/records/internal/print_differences.h"
#include "tests/events/event_database.h"

using namespace ksutil::events;

namespace {

template <class Fn>
std::string printed(Fn fn) {
  testing::internal::CaptureStdout();
  fn();
  return testing::internal::GetCapturedStdout();
}

EVEvent sample_event() {
  EVEvent event;
  event.recno_event = 4;
  event.record_event = "event row\n";
  event.evid = 17;
  event.prefor = 23;
  event.lddate_event = 1000.5;
  event.lddate_view = 2000.25;
  event.access_time = 3000.0;
  event.magnitude = 4.5;
  event.magtype = "mb";
  event.pref_origin = 0;
  return event;
}

EVOrigin sample_origin(int64_t orid) {
  EVOrigin origin;
  origin.recno_origin = orid + 100;
  origin.record_origin = "origin row\n";
  origin.orid = orid;
  return origin;
}

}  // namespace

TEST(EventPrint, WritesEachRecordInItsColumns) {
  EXPECT_EQ(printed([] { print_record(sample_event(), "> "); }),
            "> recno_event        = 4\n"
            "> record_event       = event row\n"
            "> evid               = 17\n"
            "> prefor             = 23\n"
            "> lddate_event       = 1000.500000\n"
            "> lddate_view        = 2000.250000\n"
            "> access_time        = 3000.000000\n"
            "> magnitude          = 4.500000\n"
            "> magtype            = mb\n"
            "> pref_origin        = 0\n"
            "> pref_magnitude_origin = -1\n"
            "> pref_moment_origin = -1\n");

  /* Without an origerr row the empty text leaves its line open. */
  EXPECT_EQ(printed([] { print_record(sample_origin(23), ""); }),
            "recno_origin       = 123\n"
            "record_origin      = origin row\n"
            "orid               = 23\n"
            "lddate_origin      = 0.000000\n"
            "lddate_origin_view = 0.000000\n"
            "time               = 0.000000\n"
            "recno_origerr      = -1\n"
            "record_origerr     = pref_magnitude     = -1\n"
            "pref_moment        = -1\n"
            "preferred          = 0\n");

  EVMagnitude magnitude;
  magnitude.record_netmag = "netmag row\n";
  EXPECT_EQ(printed([&] { print_record(magnitude, ""); }),
            "recno_netmag       = -1\n"
            "record_netmag      = netmag row\n"
            "lddate_netmag      = 0.000000\n"
            "magnitude          = -999.000000\n"
            "magtype            = \n");

  EVStamag stamag;
  stamag.record_stamag = "stamag row\n";
  EXPECT_EQ(printed([&] { print_record(stamag, ""); }),
            "recno_stamag        = -1\n"
            "record_stamag       = stamag row\n"
            "lddate_stamag       = 0.000000\n"
            "magnitude           = -999.000000\n"
            "magtype             = \n");

  EVMoment moment;
  moment.record_mt = "mt row\n";
  EXPECT_EQ(printed([&] { print_record(moment, ""); }),
            "recno_mt           = -1\n"
            "record_mt          = mt row\n"
            "lddate_mt          = 0.000000\n");

  EVAssociation association;
  association.record_assoc = "assoc row\n";
  association.record_arrival = "arrival row\n";
  association.record_site = "site row\n";
  association.defining = 1;
  EXPECT_EQ(printed([&] { print_record(association, ""); }),
            "recno_assoc        = -1\n"
            "record_assoc       = assoc row\n"
            "lddate_assoc       = 0.000000\n"
            "recno_arrival      = -1\n"
            "record_arrival     = arrival row\n"
            "lddate_arrival     = 0.000000\n"
            "recno_site         = -1\n"
            "record_site        = site row\n"
            "defining           = 1\n");

  EVDetection detection;
  detection.record_detection = "detection row\n";
  detection.record_site = "site row\n";
  detection.presidual = -0.0625;
  EXPECT_EQ(printed([&] { print_record(detection, ""); }),
            "recno_detection     = -1\n"
            "record_detection    = detection row\n"
            "lddate_detection    = 0.000000\n"
            "recno_site          = -1\n"
            "record_site         = site row\n"
            "presidual           = -0.062\n"
            "sresidual           = -999.000\n"
            "delta               = -999.000\n");

  EVTableRecord record{7, "a row\n"};
  EXPECT_EQ(printed([&] { print_record(record, "--"); }),
            "--recno       = 7\n--record      = a row\n");
  EVStaChan stachan{"ANMO", "BHZ", 1.0, 2.5};
  EXPECT_EQ(printed([&] { print_record(stachan, "--"); }),
            "--ANMO BHZ 1.000000 2.500000\n");
}

TEST(EventPrint, HeadsEachRowOfAList) {
  Table<EVMoment> moments;
  EXPECT_EQ(printed([&] { print_list(moments, "> "); }), "");
  moments.push(EVMoment());
  moments.push(EVMoment());
  const std::string text = printed([&] { print_list(moments, "> "); });
  EXPECT_EQ(text.find("> Moment 0:\n>     recno_mt           = -1\n"), 0U);
  EXPECT_NE(text.find("> Moment 1:\n>     recno_mt "), std::string::npos);

  Table<EVTableRecord> records;
  records.push({3, "r\n"});
  EXPECT_EQ(printed([&] { print_list(records, ">"); }),
            "> 0:\n>    recno       = 3\n>    record      = r\n");
}

TEST(EventDifferences, NameBothSides) {
  EVEvent older = sample_event();
  EVEvent newer = older;
  newer.record_event = "changed row\n";
  newer.lddate_event = 1001.125;
  newer.pref_origin = 1;
  EXPECT_EQ(printed([&] { print_differences(older, newer, "> "); }),
            "> event1 record_event \nevent row\n != event2 record_event \nchanged row\n"
            "> event1 lddate_event 1000.50000 != event2 lddate_event 1001.12500\n"
            "> event1 pref_origin 0 != event2 pref_origin 1\n");

  EVDetection detection1, detection2;
  detection2.presidual = 1.5;
  EXPECT_EQ(printed([&] { print_differences(detection1, detection2, ""); }),
            "detection1 presidual -999.000 != detection2 presidual 1.500\n");
}

TEST(EventDifferences, PairOriginsByIdAndReportAddedChangedDeleted) {
  EVEvent older = sample_event();
  older.origins.push(sample_origin(1));
  older.origins.push(sample_origin(2));
  older.origins.push(sample_origin(3));
  EVEvent newer = sample_event();
  newer.origins.push(sample_origin(3));  // moved: not a difference of its own
  newer.origins.push(sample_origin(4));
  newer.origins.push(sample_origin(2));
  newer.origins.ptr(2)->time = 10.0;
  newer.origins.ptr(2)->magnitudes.push(EVMagnitude());
  const std::string text = printed([&] { print_differences(older, newer, ""); });
  const std::size_t added = text.find("    origin2 4 added:\n        recno_origin ");
  const std::size_t changed = text.find(
      "    origin2 2 has changed from origin1 2:\n"
      "        origin1 time 0.00000 != origin2 time 10.00000\n"
      "            magnitude2 added:\n");
  const std::size_t deleted = text.find("    origin1 1 deleted:\n");
  EXPECT_EQ(added, 0U);
  EXPECT_LT(added, changed);
  EXPECT_LT(changed, deleted);
  EXPECT_NE(deleted, std::string::npos);
  EXPECT_EQ(text.find("origin2 3"), std::string::npos);
}

TEST(EventDifferences, TellMagnitudesWithoutARowApartByType) {
  Table<EVMagnitude> older, newer;
  for (const char *type : {"mb", "ms"}) {
    EVMagnitude magnitude;
    magnitude.magtype = type;
    magnitude.record_netmag = std::string(type) + " row\n";
    older.push(magnitude);
  }
  newer.push(*older.ptr(1));
  newer.push(*older.ptr(0));
  EXPECT_EQ(printed([&] { print_list_differences(older, newer, ""); }), "");
  newer.ptr(0)->record_netmag = "other row\n";
  EXPECT_EQ(printed([&] { print_list_differences(older, newer, ""); }),
            "magnitude2 has changed from magnitude1:\n"
            "    magnitude1 record_netmag \nms row\n != magnitude2 record_netmag \n"
            "other row\n");
}

TEST(EventNews, ListsNewChangedAndDeletedEvents) {
  Table<EVEvent> current, given;
  for (const int64_t evid : {1, 2, 3}) {
    EVEvent event = sample_event();
    event.evid = evid;
    current.push(event);
  }
  EVEvent added = sample_event();
  added.evid = 9;
  given.push(added);
  given.push(*current.ptr(2));
  EVEvent changed = *current.ptr(0);
  changed.prefor = 24;
  given.push(changed);
  EXPECT_EQ(printed([&] { print_news(given, current); }),
            "New event 9\n"
            "Event 1 has changed\n"
            "    event1 prefor 23 != event2 prefor 24\n"
            "Deleted event 2\n");
}

TEST(EventNews, PairsRepeatedEvidsInTheirOrder) {
  Table<EVEvent> current, given;
  for (const int64_t recno : {0, 1}) {
    EVEvent event = sample_event();
    event.recno_event = recno;
    current.push(event);
    given.push(event);
  }
  EXPECT_EQ(printed([&] { print_news(given, current); }), "");
  /* A row less or more of an evid is not an event less or more. */
  given.del(0);
  EXPECT_EQ(printed([&] { print_news(given, current); }),
            "Event 17 has changed\n"
            "    event1 recno_event 0 != event2 recno_event 1\n");
  given.set(0, *current.ptr(0));
  EXPECT_EQ(printed([&] { print_news(given, current); }), "");
  EXPECT_EQ(printed([&] { print_news(current, given); }),
            "Event 17 has changed\n"
            "    event1 recno_event 0 != event2 recno_event 1\n");
  given.ptr(0)->evid = 18;
  EXPECT_EQ(printed([&] { print_news(given, current); }),
            "New event 18\nDeleted event 17\nDeleted event 17\n");
}

TEST(EventNews, TakesTheServersListAsTheOlderOne) {
  ksutil::events::test::EventDatabase database;
  database.add_located_event(1, 1e9);
  database.add_located_event(2, 1.1e9);
  EVServer server(database.name(), 0, 0, -1);
  EVClient client(&server);
  Table<EVEvent> list = *server.eventsList();
  EXPECT_EQ(server.isEqual(&list), 1);
  list.ptr(1)->prefor = 21;
  EXPECT_EQ(server.isEqual(&list), 0);
  EVEvent added;
  added.evid = 3;
  list.set(0, added);
  const std::string news =
      "New event 3\n"
      "Event 2 has changed\n"
      "    event1 prefor 20 != event2 prefor 21\n"
      "Deleted event 1\n";
  EXPECT_EQ(printed([&] { server.printDifferences(&list); }), news);
  EXPECT_EQ(printed([&] { client.printDifferences(&list); }), news);
  server.deregisterClient(&client);
}

TEST(EventPrint, OfNothingPrintsNothing) {
  ksutil::events::test::EventDatabase database;
  EVServer server(database.name(), 0, 0, -1);
  EVEvent event;
  EVEvent *const none = nullptr;
  Table<EVEvent> *const no_list = nullptr;
  EXPECT_EQ(printed([&] {
              server.print(none, "");
              server.print(no_list, "");
              server.print(&event, none, "");
              server.print(no_list, no_list, "");
              server.printDifferences(no_list);
            }),
            "");
  EXPECT_EQ(server.isEqual(&event, none), 0);
  EXPECT_EQ(server.isEqual(none, none), 1);
  EXPECT_EQ(server.isEqual(no_list), 0);
}
