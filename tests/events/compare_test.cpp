/* A field that is compared but should not be calls every client at every refresh; one
 * that is not compared hides a change for ever. */
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "events/records/internal/compare.h"
#include "events/records/internal/fields.h"
#include "events/records/internal/print.h"
#include "events/records/internal/print_differences.h"

using namespace ksutil::events;

namespace {

template <class Record>
struct Change {
  const char *field;
  std::function<void(Record &)> apply;
  bool compared;
};

template <class Record>
void check(const std::vector<Change<Record>> &changes) {
  for (const auto &change : changes) {
    SCOPED_TRACE(change.field);
    const Record before;
    Record after;
    change.apply(after);
    EXPECT_EQ(equal(before, after), !change.compared);
    EXPECT_EQ(equal(after, before), !change.compared);
    testing::internal::CaptureStdout();
    print_differences(before, after, "");
    const std::string lines = testing::internal::GetCapturedStdout();
    if (!change.compared) {
      EXPECT_EQ(lines, "");
      continue;
    }
    /* A field, on both sides of one line; or a row below, four blanks further in. */
    const std::string name = Fields<Record>::kName, field = change.field;
    if (lines.starts_with("    ")) {
      EXPECT_TRUE(lines.starts_with("    " + field + " ")) << lines;
    } else {
      EXPECT_TRUE(lines.starts_with(name + "1 " + field + " ")) << lines;
      const std::size_t right = lines.find(" != " + name + "2 " + field + " ");
      EXPECT_NE(right, std::string::npos) << lines;
      EXPECT_EQ(right, lines.rfind(" != ")) << lines;
    }
  }
}

}  // namespace

TEST(EventEqual, ComparesTheFieldsOfAnEvent) {
  using R = EVEvent;
  check<R>({
      {"recno_event", [](R &r) { r.recno_event = 1; }, true},
      {"record_event", [](R &r) { r.record_event = "x"; }, true},
      {"evid", [](R &r) { r.evid = 1; }, true},
      {"prefor", [](R &r) { r.prefor = 1; }, true},
      {"lddate_event", [](R &r) { r.lddate_event = 1; }, true},
      {"lddate_view", [](R &r) { r.lddate_view = 1; }, true},
      {"pref_origin", [](R &r) { r.pref_origin = 1; }, true},
      {"pref_magnitude_origin", [](R &r) { r.pref_magnitude_origin = 1; }, true},
      {"pref_moment_origin", [](R &r) { r.pref_moment_origin = 1; }, true},
      {"origin2", [](R &r) { r.origins.push(EVOrigin()); }, true},
      {"order", [](R &r) { r.order = 1; }, false},
      {"access_time", [](R &r) { r.access_time = 1; }, false},
      {"time", [](R &r) { r.time = 1; }, false},
      {"magnitude", [](R &r) { r.magnitude = 1; }, false},
      {"magtype", [](R &r) { r.magtype = "mb"; }, false},
  });
}

TEST(EventEqual, ComparesTheFieldsOfAnOrigin) {
  using R = EVOrigin;
  check<R>({
      {"recno_origin", [](R &r) { r.recno_origin = 1; }, true},
      {"orid", [](R &r) { r.orid = 1; }, true},
      {"lddate_origin", [](R &r) { r.lddate_origin = 1; }, true},
      {"preferred", [](R &r) { r.preferred = 1; }, true},
      {"recno_origerr", [](R &r) { r.recno_origerr = 1; }, true},
      {"pref_magnitude", [](R &r) { r.pref_magnitude = 1; }, true},
      {"pref_moment", [](R &r) { r.pref_moment = 1; }, true},
      {"time", [](R &r) { r.time = 1; }, true},
      {"magnitude", [](R &r) { r.magnitude = 1; }, true},
      {"magtype", [](R &r) { r.magtype = "mb"; }, true},
      {"record_origin", [](R &r) { r.record_origin = "x"; }, true},
      {"record_origerr", [](R &r) { r.record_origerr = "x"; }, true},
      {"magnitude2", [](R &r) { r.magnitudes.push(EVMagnitude()); }, true},
      {"moment2", [](R &r) { r.moments.push(EVMoment()); }, true},
      {"association2", [](R &r) { r.associations.push(EVAssociation()); }, true},
      {"detection2", [](R &r) { r.detections.push(EVDetection()); }, true},
      {"lddate_origin_view", [](R &r) { r.lddate_origin_view = 1; }, false},
  });
}

TEST(EventEqual, ComparesTheFieldsOfTheRowsBelow) {
  check<EVMagnitude>({
      {"recno_netmag", [](EVMagnitude &r) { r.recno_netmag = 1; }, true},
      {"lddate_netmag", [](EVMagnitude &r) { r.lddate_netmag = 1; }, true},
      {"record_netmag", [](EVMagnitude &r) { r.record_netmag = "x"; }, true},
      {"stamags", [](EVMagnitude &r) { r.stamags.push(EVStamag()); }, false},
      {"magtype", [](EVMagnitude &r) { r.magtype = "mb"; }, false},
  });
  check<EVMoment>({
      {"recno_mt", [](EVMoment &r) { r.recno_mt = 1; }, true},
      {"lddate_mt", [](EVMoment &r) { r.lddate_mt = 1; }, true},
      {"record_mt", [](EVMoment &r) { r.record_mt = "x"; }, true},
  });
  check<EVAssociation>({
      {"recno_assoc", [](EVAssociation &r) { r.recno_assoc = 1; }, true},
      {"lddate_assoc", [](EVAssociation &r) { r.lddate_assoc = 1; }, true},
      {"record_assoc", [](EVAssociation &r) { r.record_assoc = "x"; }, true},
      {"recno_arrival", [](EVAssociation &r) { r.recno_arrival = 1; }, true},
      {"lddate_arrival", [](EVAssociation &r) { r.lddate_arrival = 1; }, true},
      {"record_arrival", [](EVAssociation &r) { r.record_arrival = "x"; }, true},
      {"recno_site", [](EVAssociation &r) { r.recno_site = 1; }, true},
      {"record_site", [](EVAssociation &r) { r.record_site = "x"; }, true},
      {"defining", [](EVAssociation &r) { r.defining = 1; }, true},
  });
  check<EVDetection>({
      {"recno_detection", [](EVDetection &r) { r.recno_detection = 1; }, true},
      {"lddate_detection", [](EVDetection &r) { r.lddate_detection = 1; }, true},
      {"record_detection", [](EVDetection &r) { r.record_detection = "x"; }, true},
      {"recno_site", [](EVDetection &r) { r.recno_site = 1; }, true},
      {"record_site", [](EVDetection &r) { r.record_site = "x"; }, true},
      {"presidual", [](EVDetection &r) { r.presidual = 1; }, true},
      {"sresidual", [](EVDetection &r) { r.sresidual = 1; }, true},
      {"delta", [](EVDetection &r) { r.delta = 1; }, true},
  });
}

TEST(EventEqual, NotANumberIsNeverEqual) {
  EVDetection detection;
  detection.delta = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(equal(detection, detection));
}

TEST(EventEqual, StationMagnitudesCountForExpandedEventsOnly) {
  EVEvent plain;
  plain.origins.push(EVOrigin());
  plain.origins.ptr(0)->magnitudes.push(EVMagnitude());
  EVEvent expanded = plain;
  expanded.origins.ptr(0)->magnitudes.ptr(0)->stamags.push(EVStamag());
  EXPECT_TRUE(equal(plain, expanded));
  EXPECT_FALSE(equal_expanded(plain, expanded));
  EXPECT_TRUE(equal_expanded(expanded, expanded));
}

TEST(EventListEqual, PairsEventsByEvidAndOriginsByPosition) {
  Table<EVEvent> list;
  for (const int64_t evid : {5, 6, 7}) {
    EVEvent event;
    event.evid = evid;
    for (const int64_t orid : {1, 2}) {
      EVOrigin origin;
      origin.orid = orid;
      event.origins.push(origin);
    }
    list.push(event);
  }
  Table<EVEvent> moved;
  for (const long i : {2, 0, 1}) moved.push(*list.ptr(i));
  EXPECT_TRUE(equal_lists(moved, list));

  Table<EVEvent> swapped = moved;
  std::swap(*swapped.ptr(1)->origins.ptr(0), *swapped.ptr(1)->origins.ptr(1));
  EXPECT_FALSE(equal_lists(swapped, list));
  Table<EVEvent> shorter = moved;
  shorter.del(0);
  EXPECT_FALSE(equal_lists(shorter, list));
  EXPECT_FALSE(equal_lists(list, shorter));
}

TEST(EventListEqual, RowsWithOneEvidAreEachFound) {
  Table<EVEvent> list;
  for (const int64_t recno : {0, 1}) {
    EVEvent event;
    event.evid = 5;
    event.recno_event = recno;
    list.push(event);
  }
  Table<EVEvent> moved;
  moved.push(*list.ptr(1));
  moved.push(*list.ptr(0));
  EXPECT_TRUE(equal_lists(moved, list));
}

TEST(DetectionListEqual, ComparesRowsPlaceByPlace) {
  Table<EVDetection> list, moved;
  for (const int64_t recno : {4, 5}) {
    EVDetection detection;
    detection.recno_detection = recno;
    list.push(detection);
  }
  moved = list;
  EXPECT_TRUE(equal(list, moved));
  moved.push(moved.shift());
  EXPECT_FALSE(equal(list, moved));
  EXPECT_FALSE(equal(list, Table<EVDetection>()));
}

TEST(EventRecords, CopiesAreDeepAtEveryLevel) {
  EVEvent event;
  event.origins.push(EVOrigin());
  EVOrigin &origin = *event.origins.ptr(0);
  origin.magnitudes.push(EVMagnitude());
  origin.magnitudes.ptr(0)->stamags.push(EVStamag());
  origin.associations.push(EVAssociation());
  EVEvent copy = event;
  EVOrigin &changed = *copy.origins.ptr(0);
  changed.orid = 9;
  changed.magnitudes.ptr(0)->stamags.ptr(0)->magnitude = 1.0;
  changed.associations.ptr(0)->defining = 1;
  EXPECT_EQ(origin.orid, -1);
  EXPECT_EQ(origin.magnitudes.ptr(0)->stamags.ptr(0)->magnitude, -999.0);
  EXPECT_EQ(origin.associations.ptr(0)->defining, 0);
}
