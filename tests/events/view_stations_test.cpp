/* Analysts pick phases by these residuals.  A station taken from a wrong epoch is some
 * kilometres off, and the better of two detections shows only if signs, ties and missing
 * values are weighed right. */
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/clock/clock.h"
#include "tests/events/view_database.h"

using namespace ksutil::events::test;

namespace {

constexpr double kStationTime = 1.0e9;  // 2001-09-09, day 252

class ViewStations : public ViewTest {
 protected:
  ViewStations() {
    db.add_located_event(1, kStationTime);
    db.add_site("AAA", 1990001, 2001252, 10.0, 30.0);
    db.add_site("AAA", 2001253, -1, 11.0, 31.0);
    db.add_site("BBB", 1990001, -1, 12.0, 22.0);
    db.add_site("BBB", 2000001, 2001300, 13.0, 23.0);
    origin = view.findOrid(10);
  }
  ~ViewStations() override { view.freeOrigin(origin); }

  /* The latitude that the station has at a time; NaN without one. */
  double latitude(const char *sta, double time) {
    KSEVOrigin *fresh = view.findOrid(10);
    KSEVOriginStation *station = nullptr;
    const int result = view.lookupStation(fresh, sta, time, &station);
    EXPECT_EQ(station->found, result == 0 ? 1 : 0);
    const double lat =
        result == 0 ? station->lat : std::numeric_limits<double>::quiet_NaN();
    view.freeOrigin(fresh);
    return lat;
  }

  /* The P residuals of the detections that are kept, after more with these residuals have
   * been added at AAA. */
  std::vector<double> kept(const std::vector<double> &residuals, int best) {
    KSEVOriginStation *station = nullptr;
    EXPECT_EQ(view.lookupStation(origin, "AAA", origin->time, &station), 0);
    for (const double residual : residuals) {
      db.add_detection("AAA", station->ptime + residual, "D");
    }
    EXPECT_EQ(view.refreshDetections(origin, best), 0);
    std::vector<double> found;
    for (const auto *detection : records<KSEVDetection>(origin->detections)) {
      found.push_back(std::round(detection->presidual * 100) / 100);
    }
    return found;
  }

  KSEVOrigin *origin;
};

}  // namespace

TEST_F(ViewStations, TakesTheEpochOfTheDay) {
  const double midnight = ksutil::yearday_epoch(2001253);
  EXPECT_EQ(latitude("AAA", midnight - 1.0), 10.0) << "the last day belongs to it";
  EXPECT_EQ(latitude("AAA", midnight), 11.0);
  EXPECT_EQ(latitude("AAA", midnight + 3e8), 11.0) << "open end";
  EXPECT_TRUE(std::isnan(latitude("AAA", ksutil::yearday_epoch(1989365))));
  EXPECT_EQ(latitude("BBB", kStationTime), 13.0) << "of two epochs the later one";
  EXPECT_EQ(latitude("BBB", midnight + 3e8), 12.0);
  EXPECT_TRUE(std::isnan(latitude("BB", kStationTime)));
}

TEST_F(ViewStations, ADetectionAfterMidnightIsSeenByTheStationOfTheOriginsDay) {
  const double midnight = ksutil::yearday_epoch(2001253);
  db.add_located_event(2, midnight - 60.0);
  db.add_detection("AAA", midnight + 60.0, "D");
  KSEVOrigin *late = view.findOrid(20);
  Tbl *alone = nullptr;
  EXPECT_EQ(view.refreshDetections(late, 0), 0);
  EXPECT_EQ(view.refreshDetections(&alone, midnight, 100.0), 0);
  const auto around = records<KSEVDetection>(late->detections);
  ASSERT_EQ(around.size(), 1U);
  EXPECT_EQ(around[0]->recno_site, 0);
  EXPECT_EQ(records<KSEVDetection>(alone)[0]->recno_site, 1) << "by its own time";
  view.freeDetections(alone);
  view.freeOrigin(late);
}

TEST_F(ViewStations, SeesAStationFromTheOrigin) {
  KSEVOriginStation *station = nullptr;
  ASSERT_EQ(view.lookupStation(origin, "AAA", kStationTime, &station), 0);
  /* Ten degrees of longitude at 10 degrees north; published tables for 33 km. */
  EXPECT_NEAR(station->delta, 9.848, 0.001);
  EXPECT_NEAR(station->azimuth, 89.13, 0.01);
  EXPECT_NEAR(station->ptime - kStationTime, 141.0, 3.0);
  EXPECT_NEAR(station->stime - kStationTime, 252.0, 5.0);
}

TEST_F(ViewStations, AsksOnceForEachOrigin) {
  KSEVOriginStation *first = nullptr, *second = nullptr, *absent = nullptr;
  EXPECT_EQ(view.lookupStation(origin, "AAA", kStationTime, &first), 0);
  EXPECT_EQ(view.lookupStation(origin, "CCC", kStationTime, &absent), 1);
  db.add_site("CCC", 1990001, -1, 0.0, 0.0);
  EXPECT_EQ(view.lookupStation(origin, "AAA", kStationTime + 1e8, &second), 0);
  EXPECT_EQ(first, second);
  EXPECT_EQ(view.lookupStation(origin, "CCC", kStationTime, nullptr), 1);
  EXPECT_EQ(countarr(origin->stations), 2);
}

TEST_F(ViewStations, ReportsWhatCannotBePredicted) {
  db.add_detection("AAA", kStationTime + 5.0, "D");
  origin->depth = 800.0;  // deeper than any earthquake: no time, and no failure
  EXPECT_EQ(view.refreshDetections(origin, 0), 0);
  const auto found = records<KSEVDetection>(origin->detections);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0]->presidual, -999.0);
  EXPECT_GT(found[0]->delta, 9.0);

  KSEVOrigin *broken = view.findOrid(10);
  broken->depth = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(view.refreshDetections(broken, 0), -1);
  const std::string messages = taken_messages();
  EXPECT_NE(messages.find("KSEventView::lookupStation: dbex_evalstr(ptime(9.84"),
            std::string::npos);
  EXPECT_NE(messages.find("KSEventView::refreshDetections: lookupStation(AAA_BHZ) "
                          "error.\n"),
            std::string::npos);
  EXPECT_EQ(broken->detections, nullptr);
  view.freeOrigin(broken);
}

TEST_F(ViewStations, KeepsTheBestDetectionOfEachStation) {
  EXPECT_EQ(kept({1.5, -0.5, 0.6}, 0), (std::vector<double>{1.5, -0.5, 0.6}));
  EXPECT_EQ(kept({}, 1), (std::vector<double>{-0.5}));
  EXPECT_EQ(kept({-0.5}, 1), (std::vector<double>{-0.5}));
  EXPECT_EQ(records<KSEVDetection>(origin->detections)[0]->recno_detection, 1)
      << "a tie keeps the earlier";
  EXPECT_EQ(kept({0.25}, 1), (std::vector<double>{0.25}));
}

TEST_F(ViewStations, TheBestIsByTheSWaveWhereNoPIsPredicted) {
  KSEVOriginStation *station = nullptr;
  ASSERT_EQ(view.lookupStation(origin, "AAA", origin->time, &station), 0);
  station->ptime = -9999999999.999;
  for (const double residual : {2.0, -1.0, 1.5}) {
    db.add_detection("AAA", station->stime + residual, "D");
  }
  EXPECT_EQ(view.refreshDetections(origin, 1), 0);
  const auto found = records<KSEVDetection>(origin->detections);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0]->presidual, -999.0);
  EXPECT_NEAR(found[0]->sresidual, -1.0, 1e-4);
}

TEST_F(ViewStations, ADetectionWithoutPredictionIsNoGoodDetection) {
  /* At an unknown station -999.0 is not a residual, and no detection is the better one. */
  db.add_detection("CCC", kStationTime + 20.0, "D");
  db.add_detection("CCC", kStationTime + 10.0, "D");
  EXPECT_EQ(kept({2000.0 - 1000.0}, 1), (std::vector<double>{-999.0, 1000.0}));
  EXPECT_EQ(records<KSEVDetection>(origin->detections)[0]->time, kStationTime + 20.0);
}

TEST_F(ViewStations, LeavesOutStatesOfTheDetectorAndOtherTimes) {
  for (const char *state : {"-", "ON", "on", "OFF", "off", "D", "Off", "onset"}) {
    db.add_detection("CCC", kStationTime + 1.0, state);
  }
  /* Other programs leave the field blank, which is not one of the five states. */
  Dbptr row = db.table("detection");
  row.record = db.add_detection("CCC", kStationTime + 1.0, "blank");
  char text[1024];
  ASSERT_EQ(dbget(row, text), 0);
  std::string blanked = text;
  ASSERT_EQ(dbput(row, blanked.replace(blanked.find("blank"), 5, 5, ' ').c_str()), 0);
  for (const double offset : {-10.5, -10.0, 1800.0, 1800.5}) {
    db.add_detection("CCC", kStationTime + offset, "edge");
  }
  EXPECT_EQ(view.refreshDetections(origin, 0), 0);
  std::vector<std::string> states;
  for (const auto *detection : records<KSEVDetection>(origin->detections)) {
    states.emplace_back(detection->state);
  }
  EXPECT_EQ(states,
            (std::vector<std::string>{"D", "Off", "onset", "", "edge", "edge"}));
}

TEST_F(ViewStations, PutsAStationIntoADetection) {
  db.add_detection("AAA", kStationTime + 100.0, "D");
  Tbl *detections = nullptr;
  ASSERT_EQ(view.refreshDetections(&detections, kStationTime, 200.0), 0);
  auto *detection = static_cast<KSEVDetection *>(gettbl(detections, 0));
  KSEVOriginStation *station = nullptr;
  EXPECT_EQ(view.lookupStation(detection, "BBB", origin), 0);
  EXPECT_EQ(view.lookupStation(origin, "BBB", kStationTime, &station), 0);
  EXPECT_EQ(detection->delta, station->delta);
  EXPECT_EQ(detection->presidual, kStationTime + 100.0 - station->ptime);
  EXPECT_EQ(detection->recno_site, 3);
  EXPECT_STREQ(detection->record_site, station->record_site);
  view.freeDetections(detections);
}
