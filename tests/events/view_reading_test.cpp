/* Programs compare what the view shows with what a server shows: a field that differs
 * between them makes one of two screens wrong, and nobody can tell which.  Its records are
 * plain C: one that is freed twice or never ends a program that runs for months. */
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <sstream>
#include <string_view>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/events/view_database.h"
#include "tests/support/rows.h"

using namespace ksutil::events::test;

namespace {

using ksutil::test::kEndOfArguments;
constexpr double kTime = 1.0e9;  // 2001-09-09, day 252

class ViewReading : public ViewTest {
 protected:
  /* Three events: with everything, with a missing preferred origin, without origins. */
  ViewReading() {
    db.add_event(1, 11);
    db.add_event(2, 99);
    db.add_event(3, -1);
    db.add_origin(11, 1, kTime, 1000.0);
    db.add_origin(12, 1, kTime + 1.0, 900.0);
    db.add_origin(21, 2, kTime - 100.0, 2000.0);
    db.add_origin(22, 2, kTime - 99.0, 1500.0);
    dbputv(db.row("origin", 2), "mb", 4.5, "lddate", 2000.0, kEndOfArguments);
    db.add_origerr(11);
    db.add_netmag(101, 11, "mb", 4.5);
    db.add_netmag(102, 11, "MW", 5.0, 1234.0);
    db.add_mt(11, 1001.0);
    db.add_mt(12, 1002.0);
    db.add_arrival(501, "AAA", kTime + 60.0);
    dbputv(db.row("assoc", db.add_assoc(501, 11, "AAA", "d")), "phase", "Pn", "timeres",
           0.25, kEndOfArguments);
    db.add_assoc(502, 11, "BBB", "n");
    db.add_stamag(101, "AAA", 4.6);
    db.add_stamag(101, "BBB", 4.4);
    db.add_site("AAA", 1990001, -1, 10.0, 30.0);
    db.add_site("BBB", 1990001, -1, -40.0, -100.0);
    db.add_detection("AAA", kTime + 145.0, "D");
    db.add_detection("BBB", kTime + 1200.0, "D");
    db.add_detection("CCC", kTime + 5.0, "D");
  }

  /* Reads all events and keeps the complaints, which go to standard error. */
  Tbl *events_read_quietly() {
    testing::internal::CaptureStderr();
    Tbl *events = nullptr;
    EXPECT_EQ(view.refreshEvents(&events), 0);
    complaints = testing::internal::GetCapturedStderr();
    return events;
  }

  std::string complaints;
};

/* The records of view and server have the same fields, so that one function describes
 * both.  Residuals and distances are rounded to a hundredth, because the view computes
 * them from rounded decimals. */
template <class... Values>
std::string line(const Values &...values) {
  std::ostringstream text;
  text.precision(17);
  ((text << values << '|'), ...);
  text << '\n';
  return text.str();
}

template <class Record, class Describe>
std::string all(Tbl *list, Describe describe) {
  std::string text;
  for (const Record *record : records<Record>(list)) text += describe(*record);
  return text;
}
template <class, class Source, class Describe>
std::string all(const Table<Source> &list, Describe describe) {
  std::string text;
  for (const Source &source : list) text += describe(source);
  return text;
}

const auto text_of_stamag = [](const auto &s) {
  return line("stamag", s.recno_stamag, std::string_view(s.record_stamag),
              s.lddate_stamag, s.magnitude, s.magtype);
};
const auto text_of_magnitude = [](const auto &m) {
  return line("magnitude", m.recno_netmag, std::string_view(m.record_netmag),
              m.lddate_netmag, m.magnitude, m.magtype) +
         all<KSEVStamag>(m.stamags, text_of_stamag);
};
const auto text_of_moment = [](const auto &m) {
  return line("moment", m.recno_mt, std::string_view(m.record_mt), m.lddate_mt);
};
const auto text_of_association = [](const auto &a) {
  return line("association", a.recno_assoc, std::string_view(a.record_assoc),
              a.lddate_assoc, a.recno_arrival, std::string_view(a.record_arrival),
              a.lddate_arrival, a.recno_site, std::string_view(a.record_site),
              a.defining);
};
const auto text_of_detection = [](const auto &d) {
  return line("detection", d.recno_detection, std::string_view(d.record_detection),
              d.lddate_detection, d.recno_site, std::string_view(d.record_site),
              std::lround(100 * d.presidual), std::lround(100 * d.sresidual),
              std::lround(100 * d.delta));
};
const auto text_of_origin = [](const auto &o) {
  return line("origin", o.recno_origin, std::string_view(o.record_origin), o.orid,
              o.lddate_origin, o.lddate_origin_view, o.time, o.recno_origerr,
              std::string_view(o.record_origerr), o.magnitude, o.magtype, o.preferred,
              o.pref_magnitude, o.pref_moment) +
         all<KSEVMagnitude>(o.magnitudes, text_of_magnitude) +
         all<KSEVMoment>(o.moments, text_of_moment) +
         all<KSEVAssociation>(o.associations, text_of_association) +
         all<KSEVDetection>(o.detections, text_of_detection);
};
const auto text_of_event = [](const auto &e) {
  return line("event", e.recno_event, std::string_view(e.record_event), e.evid,
              e.prefor, e.order, e.lddate_event, e.lddate_view, e.time, e.magnitude,
              e.magtype, e.pref_origin, e.pref_magnitude_origin, e.pref_moment_origin) +
         all<KSEVOrigin>(e.origins, text_of_origin);
};

}  // namespace

TEST_F(ViewReading, AgreesWithTheServerEventByEvent) {
  /* A row that cannot be read. */
  db.overwrite("event", 0, "xxxxxxxx");
  db.add_event(1, 11);
  EVServer server(db.name(), 0, 0, -1);
  Tbl *events = events_read_quietly();
  Table<EVEvent> listed = server.getEvents();
  ASSERT_EQ(listed.size(), 3);
  EXPECT_EQ(all<KSEVEvent>(events, text_of_event),
            all<KSEVEvent>(listed, text_of_event));

  for (KSEVEvent *event : records<KSEVEvent>(events)) {
    EXPECT_EQ(view.refreshAssociations(event), 0);
    for (KSEVOrigin *origin : records<KSEVOrigin>(event->origins)) {
      EXPECT_EQ(view.refreshDetections(origin, 0), 0);
      for (KSEVMagnitude *magnitude : records<KSEVMagnitude>(origin->magnitudes)) {
        EXPECT_EQ(view.refreshStamags(magnitude), 0);
      }
    }
    EVEvent expanded;
    ASSERT_EQ(server.getExpandedEvent(nullptr, event->evid, expanded), 0);
    expanded.order = event->order;  // an expanded event is read alone
    EXPECT_EQ(text_of_event(*event), text_of_event(expanded));
  }
  /* Three for each of four origins of the same place and nearly the same time. */
  EXPECT_EQ(numbers_of(view), (std::vector<long>{3, 4, 3, 2, 2, 12, 2}));
  view.freeEvents(events);
  EXPECT_EQ(numbers_of(view), std::vector<long>(7, 0));
}

TEST_F(ViewReading, ComplainsOfAMissingPreferredOriginAndTakesTheNewest) {
  Tbl *events = events_read_quietly();
  EXPECT_NE(complaints.find("KSEventView::refreshEvent: Cannot find preferred origin "
                            "99 for evid 2 - assigning 21\n"),
            std::string::npos);
  EXPECT_EQ(complaints.find("evid 3"), std::string::npos) << "it has no origins";
  const KSEVEvent &event = *view.findEvid(events, 2);
  const auto origins = records<KSEVOrigin>(event.origins);
  ASSERT_EQ(origins.size(), 2U);
  EXPECT_LT(kseventview_compare_origin_lddate(origins[0], origins[1]), 0);
  EXPECT_EQ(event.pref_origin, 1);
  EXPECT_EQ(origins[1]->orid, 21);
  EXPECT_EQ(origins[1]->preferred, 1);
  view.freeEvents(events);
}

TEST_F(ViewReading, ReadsWhatAssociationsAndDetectionsSay) {
  KSEVEvent *event = view.findEvid(1);
  ASSERT_NE(event, nullptr);
  KSEVOrigin *origin = view.findOrid(event, 11);
  ASSERT_NE(origin, nullptr);
  EXPECT_EQ(origin->lat, 10.0);
  EXPECT_EQ(origin->depth, 33.0);
  EXPECT_EQ(view.refreshAssociations(origin), 0);
  const auto associations = records<KSEVAssociation>(origin->associations);
  ASSERT_EQ(associations.size(), 2U);
  EXPECT_STREQ(associations[0]->sta, "AAA");
  EXPECT_STREQ(associations[0]->phase, "Pn");
  EXPECT_EQ(associations[0]->timeres, 0.25);
  EXPECT_EQ(associations[0]->time, kTime + 60.0);
  /* Without an arrival. */
  EXPECT_STREQ(associations[1]->phase, "");
  EXPECT_EQ(associations[1]->timeres, -999.0);
  EXPECT_LT(associations[1]->time, -9999999999.0);

  EXPECT_EQ(view.refreshAssociation(origin, 1, associations[0]), 0);
  EXPECT_STREQ(associations[0]->sta, "BBB") << "in the place of what it held";
  origin->orid = 12;
  EXPECT_EQ(view.refreshAssociation(origin, 0, associations[0]), -1);
  EXPECT_EQ(taken_messages(),
            "KSEventView::refreshAssociation: the row is of another origin.\n");
  EXPECT_STREQ(associations[0]->sta, "BBB") << "untouched by a failure";

  Tbl *detections = nullptr;
  EXPECT_EQ(view.refreshDetections(&detections, kTime + 5.0, 140.0), 0);
  const auto found = records<KSEVDetection>(detections);
  ASSERT_EQ(found.size(), 2U) << "both ends belong to the span";
  EXPECT_STREQ(found[0]->sta, "AAA");
  EXPECT_EQ(found[0]->recno_site, 0);
  EXPECT_EQ(found[0]->presidual, -999.0) << "there is no origin";
  EXPECT_EQ(found[1]->recno_site, -1);
  view.freeDetections(detections);
  view.freeEvent(event);
  EXPECT_EQ(numbers_of(view), std::vector<long>(7, 0));
}

TEST_F(ViewReading, FillsARecordAgainWithoutLosingWhatItHeld) {
  auto *event = new KSEVEvent;
  long order = 7;
  EXPECT_EQ(view.refreshEvent(0, event, &order), 0);
  EXPECT_EQ(view.refreshEvent(2, event, &order), 0);
  EXPECT_EQ(event->evid, 3);
  EXPECT_EQ(event->order, 8);
  EXPECT_EQ(numbers_of(view), (std::vector<long>{1, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(view.refreshEvent(1000, event, &order), 10);
  EXPECT_EQ(event->evid, 3);
  EXPECT_EQ(taken_messages(), "");
  view.freeEvent(event);
  auto *stamag = new KSEVStamag;
  EXPECT_EQ(view.refreshStamag(1, stamag), 0);
  EXPECT_STREQ(stamag->sta, "BBB");
  Tbl *stamags = newtbl(1);
  pushtbl(stamags, stamag);
  view.freeStamags(stamags);
  EXPECT_EQ(numbers_of(view), std::vector<long>(7, 0));
}

TEST_F(ViewReading, FindsByIdAndTellsAbsenceFromFailure) {
  EXPECT_EQ(view.findEvid(77), nullptr);
  EXPECT_EQ(view.findOrid(77), nullptr);
  EXPECT_EQ(taken_messages(), "");
  KSEVOrigin *origin = view.findOrid(21);
  ASSERT_NE(origin, nullptr);
  EXPECT_EQ(records<KSEVMagnitude>(origin->magnitudes).size(), 1U) << "its own mb";
  view.freeOrigin(origin);

  constexpr long kTimeOfOrigin = 30;
  db.overwrite("origin", kTimeOfOrigin, "xxxxx");
  EXPECT_EQ(view.findOrid(11), nullptr);
  EXPECT_NE(taken_messages().find("KSEventView::findOrid: refreshOrigin() error.\n"),
            std::string::npos);
  EXPECT_EQ(view.findEvid(1), nullptr);
  EXPECT_NE(taken_messages().find("KSEventView::findEvid: refreshEvent() error.\n"),
            std::string::npos);
}

TEST_F(ViewReading, AnEventWithoutOriginsFailsWhereOneIsNeeded) {
  KSEVEvent *event = view.findEvid(3);
  ASSERT_NE(event, nullptr);
  auto *origin = static_cast<KSEVOrigin *>(gettbl(event->origins, event->pref_origin));
  EXPECT_EQ(view.refreshAssociations(event), 0);
  EXPECT_EQ(view.refreshAssociations(origin), -1);
  EXPECT_EQ(view.refreshDetections(origin, 1), -1);
  EXPECT_EQ(view.lookupStation(origin, "AAA", kTime, nullptr), -1);
  EXPECT_EQ(taken_messages(),
            "KSEventView::refreshAssociations: no record is given.\n"
            "KSEventView::refreshDetections: no record is given.\n"
            "KSEventView::lookupStation: no record is given.\n");
  view.freeEvent(event);
}

TEST_F(ViewReading, FailsForEveryOtherMissingRecordToo) {
  KSEVOrigin *origin = view.findOrid(11);
  KSEVDetection *const no_detection = nullptr;
  EXPECT_EQ(view.lookupStation(no_detection, "AAA", origin), -1);
  EXPECT_EQ(view.lookupStation(origin, nullptr, kTime, nullptr), -1);
  EXPECT_EQ(view.refreshStamags(nullptr), -1);
  EXPECT_EQ(view.refreshEvents(nullptr), -1);
  EXPECT_EQ(view.refreshDetections(nullptr, kTime, 10.0), -1);
  EXPECT_EQ(view.checkChanges(nullptr), -1);
  KSEVEvent *event = view.findEvid(1);
  pushtbl(event->origins, nullptr);
  EXPECT_EQ(view.refreshAssociations(event), -1);
  EXPECT_EQ(records<KSEVOrigin>(event->origins)[0]->associations, nullptr);
  Tbl *events = newtbl(2);
  pushtbl(events, event);
  pushtbl(events, nullptr);
  EXPECT_EQ(view.sortEvents(events, 0), -1);
  EXPECT_EQ(gettbl(events, 0), event);
  EXPECT_EQ(taken_messages(),
            "KSEventView::lookupStation: no record is given.\n"
            "KSEventView::lookupStation: no station is given.\n"
            "KSEventView::refreshStamags: no record is given.\n"
            "KSEventView::refreshEvents: no place for the list is given.\n"
            "KSEventView::refreshDetections: no place for the list is given.\n"
            "KSEventView::checkChanges: no place for the changes is given.\n"
            "KSEventView::refreshAssociations: no record is given.\n"
            "KSEventView::sortEvents: no record is given.\n");
  view.freeEvents(events);
  view.freeOrigin(origin);
}

/* A program that compares load dates must not take an undated origin for a changed one. */
TEST_F(ViewReading, AnOriginWithoutALoadDateHasNoneInItsView) {
  constexpr double kNone = -9999999999.999;
  db.add_origin(31, 3, kTime, kNone);
  db.add_origin(32, 3, kTime, kNone);
  db.add_mt(32, kNone);
  db.add_origin(33, 3, kTime, kNone);
  db.add_mt(33, 1500.0);
  for (const auto &[orid, expected] :
       {std::pair(31L, kNone), std::pair(32L, kNone), std::pair(33L, 1500.0)}) {
    KSEVOrigin *origin = view.findOrid(orid);
    ASSERT_NE(origin, nullptr);
    EXPECT_EQ(origin->lddate_origin, kNone);
    EXPECT_EQ(origin->lddate_origin_view, expected) << orid;
    view.freeOrigin(origin);
  }
}

TEST_F(ViewReading, SortsByTimeThenEvid) {
  Tbl *events = newtbl(0);
  const std::pair<double, long> keys[] = {{5, 3}, {5, 1}, {4, 9}, {6, 2}};
  for (const auto &[time, evid] : keys) {
    auto *event = new KSEVEvent;
    event->time = time;
    event->evid = evid;
    pushtbl(events, event);
  }
  const auto order = [&] {
    std::vector<long> evids;
    for (const KSEVEvent *event : records<KSEVEvent>(events)) {
      evids.push_back(event->evid);
    }
    return evids;
  };
  EXPECT_EQ(view.sortEvents(events, 0), 0);
  EXPECT_EQ(order(), (std::vector<long>{9, 1, 3, 2}));
  EXPECT_EQ(view.sortEvents(events, 1), 0);
  EXPECT_EQ(order(), (std::vector<long>{2, 3, 1, 9}));
  view.freeEvents(events);
}

/* Whichever allocation fails, a reading is complete or fails with a message, and leaks
 * nothing. */
TEST_F(ViewReading, FailsWholeWhenMemoryIsShort) {
  std::string all_messages;
  long failures = 0;
  for (long n = 1;; n++) {
    KSEVEvent *event = view.findEvid(1);
    ASSERT_NE(event, nullptr);
    auto *origin = static_cast<KSEVOrigin *>(gettbl(event->origins, 1));
    ks_test_fail_alloc(n);
    Tbl *events = nullptr;
    bool failed = false;
    failed |= view.refreshAssociations(event) < 0;
    failed |= view.refreshDetections(origin, static_cast<int>(n % 2)) < 0;
    testing::internal::CaptureStderr();
    failed |= view.refreshEvents(&events) < 0;
    const std::string printed = testing::internal::GetCapturedStderr();
    ks_test_fail_alloc(0);
    const std::string messages = printed + taken_messages();
    EXPECT_EQ(failed, messages.find("error.\n") != std::string::npos) << messages;
    view.freeEvents(events);
    view.freeEvent(event);
    ASSERT_EQ(numbers_of(view), std::vector<long>(7, 0)) << "allocation " << n;
    all_messages += messages;
    if (!failed) break;
    failures++;
  }
  EXPECT_GT(failures, 50);
  for (const char *text :
       {"KSEventView::refreshEvents: malloc() error.\n",
        "KSEventView::lookupStation: malloc(KSEVOriginStation) error.\n",
        "KSEventView::refreshDetections: malloc(best_detection) error.\n"}) {
    EXPECT_NE(all_messages.find(text), std::string::npos) << text;
  }
}
