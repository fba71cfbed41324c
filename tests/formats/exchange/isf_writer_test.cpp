/* A bulletin that is written must be read by others: by columns, and by our reader with
 * nothing lost that the columns hold. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/exchange/import/record_bytes.h"
#include "tests/formats/exchange/reading.h"
#include "tests/support/kept_text.h"

namespace ksutil::exchange {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

std::string write_isf(const std::vector<Event> &events,
                      std::vector<std::string> *unplaced = nullptr) {
  test::KeptText kept;
  const auto writer = format_of_word("isf")->open_writer(kept);
  EXPECT_TRUE(writer->begin());
  for (const Event &event : events) EXPECT_TRUE(writer->put(event));
  EXPECT_TRUE(writer->end());
  for (const Unplaced &name : writer->without_place()) {
    if (unplaced != nullptr) unplaced->push_back(name.name);
  }
  return kept.text;
}

/* All values of an event but the line where it stood. */
std::string values_of(Event event) {
  event.line = 0;
  std::string bytes;
  put_event(event, bytes);
  return bytes;
}

/* An event that uses each column; times have the decimals that are written. */
Event full_event() {
  Event event;
  event.id = "AAA:4711";
  event.author = "AAA";
  event.type = "earthquake";
  event.place = "Fiji region";
  event.comments = {"Felt", "#not a formatted comment", "+nor this (one)"};
  Origin first;
  first.id = "AAA:101";
  first.author = "BCIS";
  first.time = 981244770.25;  // 2001-02-03T23:59:30.25
  first.lat = -12.5;
  first.lon = 170.25;
  Origin second = first;
  second.id = "smi:other.org/origin/a-very-long-identifier#2";
  second.author = "AAA";
  second.lat = -12.625;
  second.lon = -179.5;
  second.depth = 33.0;
  second.depth_type = 'g';
  second.depth_error = 2.5;
  second.time_error = 0.25;
  second.rms = 0.75;
  second.major_axis = 10.5;
  second.minor_axis = 4.5;
  second.ellipse_strike = 135.0;
  second.confidence = 0.9;
  second.phases = 12;
  second.gap = 95.0;
  second.nearest = 1.25;
  second.status = "manual";
  second.algorithm = "inversion";
  second.comments = {"Depth fixed"};
  Magnitude mb;
  mb.type = "mb";
  mb.value = 4.5;
  mb.error = 0.2;
  mb.stations = 7;
  mb.author = "AAA";
  mb.comments = {"few stations"};
  second.magnitudes = {mb};
  mb.type = "MS_20";
  mb.value = 4.25;
  first.magnitudes = {mb};
  MomentTensor tensor;
  tensor.author = "GCMT";
  tensor.elements = {1e17, 2e17, -3e17, 4e17, 5e17, -2e18};
  tensor.moment = 2.125e18;
  tensor.mw = (18.327358934386329 - 9.1) / 1.5;
  tensor.clvd = 12.5;
  tensor.stations = 12;
  tensor.components = 31;
  tensor.plane1 = {359.5, 90.0, 5.0};
  tensor.plane2 = {111.25, 89.0, -175.0};
  tensor.axes = {2e18, 1.0, 135.0, 1e17, 88.0, 10.0, -2.25e18, 2.0, 225.0};
  tensor.algorithm = "BDC";
  tensor.time = second.time;
  tensor.lat = second.lat;
  tensor.lon = second.lon;
  tensor.depth = second.depth;
  second.tensors = {tensor};
  Pick pick;
  pick.id = "AAA:9001";
  pick.author = "CCC";
  pick.at = {"NN", "ABCDE", "", "BHZ"};
  pick.time = 981244923.125;
  pick.time_error = 0.125;
  pick.phase = "P";
  pick.onset = 'w';
  pick.first_motion = 'c';
  pick.automatic = true;
  pick.azimuth = 150.5;
  pick.azimuth_error = 3.5;
  pick.slowness = 13.5;
  pick.slowness_error = 0.5;
  pick.amplitude = 3.5;
  pick.period = 0.75;
  pick.snr = 12.5;
  pick.comments = {"Weak"};
  Association association;
  association.pick = 0;
  association.phase = "Pn";
  association.delta = 10.25;
  association.esaz = 330.5;
  association.time_residual = -1.5;
  association.azimuth_residual = -2.5;
  association.slowness_residual = -0.5;
  association.time_used = association.azimuth_used = 'd';
  association.slowness_used = 'n';
  association.weight = 0.75;
  Pick bare;
  bare.at.station = "FGH";
  bare.time = 981244790.0;
  bare.phase = "S";
  Association bare_association;
  bare_association.pick = 1;
  bare_association.phase = "S";
  Pick late = bare;  // more than a day after the origin, without an id
  late.time += 90000.0;
  Association late_association = bare_association;
  late_association.pick = 2;
  event.picks = {pick, bare, late};
  second.associations = {association, bare_association, late_association};
  StationMagnitude station;
  station.at.station = "ABCDE";
  station.type = "mb";
  station.phase = "Pn";
  station.value = 4.75;
  station.pick = 0;
  station.magnitude = 0;
  StationMagnitude alone = station;
  alone.at.station = "XYZ";
  alone.phase = "LR";
  alone.pick = -1;
  second.station_magnitudes = {station, alone};
  event.origins = {first, second};
  event.preferred = 1;
  return event;
}

TEST(IsfWriter, PutsValuesIntoTheirColumns) {
  const std::string text = write_isf({full_event()});
  EXPECT_THAT(text, testing::StartsWith("BEGIN IMS1.0\nMSG_TYPE DATA\nMSG_ID 1 AAA\n"));
  EXPECT_THAT(text, testing::EndsWith("\nSTOP\n"));
  EXPECT_THAT(text, HasSubstr("\nEvent     4711 Fiji region\n"));
  EXPECT_THAT(text,
              HasSubstr("\n2001/02/03 23:59:30.25              -12.5000  170.2500  "
                        "                                                           "
                        "ke BCIS           101\n"));
  EXPECT_THAT(text,
              HasSubstr("\n2001/02/03 23:59:30.25   0.25  0.75 -12.6250 -179.5000  "
                        "10.5   4.5 135  33.0f  2.5   12       95   1.25        m i "
                        "ke AAA             _1\n"));
  EXPECT_THAT(text, HasSubstr("\nmb     4.5 0.2    7 AAA             _1\n"));
  EXPECT_THAT(text,
              HasSubstr("\nABCDE  10.25 330.5 Pn       00:02:03.125  -1.5 150.5  "
                        "-2.5   13.5   -0.5 TA_  12.5       3.5  0.75 acq mb    4.75"
                        "     9001\n"));
  EXPECT_THAT(text,
              HasSubstr("\nNN        BHZ               P        2001/02/04  0.125 "
                        "0.750   3.5          0.5                           CCC     "
                        "      9001\n"));
  EXPECT_THAT(text, HasSubstr("\n (#        18 2.125 0.125  0.100  0.200 -0.300  0.400 "
                              "-2.000  0.500   12      GCMT     )\n"));
}

TEST(IsfWriter, IsReadBackWithEqualValues) {
  Event other = full_event();
  other.id = "smi:other.org/event/7";
  other.author = "BBB";
  other.origins[0].id = "";
  Event third = full_event();
  third.id = "us1000778i";
  third.author = "AAA";
  const std::vector<Event> events{full_event(), other, third};
  std::vector<std::string> unplaced;
  const ReadEvents result = read_events(write_isf(events, &unplaced));
  EXPECT_THAT(result.refused, IsEmpty());
  EXPECT_THAT(result.unplaced, testing::ElementsAre("marks of automatic picks: 3",
                                                    "phases without a time: 3"));
  ASSERT_THAT(result.events, SizeIs(3));
  for (std::size_t i = 0; i < events.size(); i++) {
    const Event &expected = events[i], &got = result.events[i];
    EXPECT_EQ(got.id, expected.id);
    EXPECT_EQ(got.comments, expected.comments);
    EXPECT_EQ(got.origins.at(0).id, expected.origins[0].id);
    EXPECT_EQ(got.origins.at(1).id, expected.origins[1].id);
    EXPECT_EQ(got.picks.at(0).id, expected.picks[0].id);
    EXPECT_EQ(got.picks.at(2).id, "");
    EXPECT_NEAR(got.picks.at(2).time, expected.picks[2].time, 1e-6);
    EXPECT_EQ(got.origins[1].tensors.at(0).axes, expected.origins[1].tensors[0].axes);
    const MomentTensor &tensor = got.origins[1].tensors[0];
    EXPECT_NEAR(tensor.mw, expected.origins[1].tensors[0].mw, 1e-9);
    Event same = got;
    same.origins[1].tensors[0].mw = expected.origins[1].tensors[0].mw;
    EXPECT_EQ(values_of(same), values_of(expected)) << "event " << i;
  }
  EXPECT_THAT(unplaced, IsEmpty());
}

TEST(IsfWriter, CountsWhatHasNoPlaceAndScalesErrors) {
  Event event = full_event();
  event.name = "Great";
  event.origins[1].confidence = 0.0;
  event.origins[1].author = "a long author";
  event.origins[0].associations = event.origins[1].associations;
  event.picks[0].at.location = "00";
  event.picks[0].amplitude = 1e12;
  std::vector<std::string> unplaced;
  const ReadEvents result = read_events(write_isf({event}, &unplaced));
  EXPECT_THAT(result.refused, IsEmpty());
  ASSERT_THAT(result.events, SizeIs(1));
  const Origin &origin = result.events[0].origins.at(1);
  /* chi-square of two degrees of freedom: -2 ln(1 - p); 4.6052 at 0.9 and 2.2958 at
   * 0.6827.  The widths hold one more digit. */
  EXPECT_NEAR(origin.major_axis, 10.5 * 1.4163, 0.01);
  EXPECT_NEAR(origin.time_error, 0.25 * 1.6449, 0.01);
  EXPECT_EQ(origin.author, "a long au");
  EXPECT_EQ(result.events[0].picks.at(0).amplitude, -1.0);
  for (const char *name :
       {"names of events", "levels of confidence other than 0.9", "location codes",
        "phases of origins that are not preferred", "texts longer than their columns",
        "numbers wider than their columns"}) {
    EXPECT_THAT(unplaced, Contains(std::string(name)));
  }
}

/* Whoever reads the bulletin takes what the columns say for what the database had. */
TEST(IsfWriter, CountsWhatComesBackAsSomethingElse) {
  const auto expect = [](const char *name, auto change, bool counted = true) {
    Event event = full_event();
    change(event.origins[1]);
    std::vector<std::string> unplaced;
    const ReadEvents result = read_events(write_isf({event}, &unplaced));
    EXPECT_THAT(result.refused, IsEmpty());
    EXPECT_EQ(unplaced.size(), counted ? 1U : 0U) << name;
    EXPECT_TRUE(!counted || unplaced.at(0) == name) << unplaced.at(0);
    return result.events.at(0).origins.at(1);
  };
  const char *states = "states of review that IMS1.0 does not have";
  for (const char *status : {"rejected", "preliminary", "reviewed"}) {
    const Origin read = expect(states, [&](Origin &o) { o.status = status; });
    EXPECT_EQ(read.status, status == std::string("rejected") ? "" : "manual");
  }
  expect(
      states, [](Origin &o) { o.status = "automatic"; }, false);
  expect("location methods that IMS1.0 does not have",
         [](Origin &o) { o.algorithm = "locsat"; });
  const auto without_errors = [](Origin &o) {
    o.confidence = 0.0;
    o.major_axis = o.minor_axis = o.ellipse_strike = -1.0;
    o.depth_error = o.time_error = -1.0;
  };
  const char *levels = "levels of confidence other than 0.9";
  expect(levels, without_errors, false);
  for (double Origin::*error :
       {&Origin::horizontal_error, &Origin::depth_error, &Origin::time_error}) {
    expect(levels, [&](Origin &o) {
      without_errors(o);
      o.*error = 2.0;
    });
  }
  expect("earth models of phases",
         [](Origin &o) { o.associations[1].earth_model = "iasp91"; });
  expect("states of review of moment tensors",
         [](Origin &o) { o.tensors[0].status = "manual"; });
  expect("methods of moment tensors without fault planes", [](Origin &o) {
    o.tensors[0].plane1 = o.tensors[0].plane2 = {-999.0, -999.0, -999.0};
  });
  const char *moments = "moment magnitudes other than that of the moment";
  expect(moments, [](Origin &o) { o.tensors[0].mw = -999.0; });
  expect(moments, [](Origin &o) { o.tensors[0].mw = 6.1; });
  expect(
      moments, [](Origin &o) { o.tensors[0].mw = 6.15; }, false);
  const Origin read =
      expect("mechanisms without a tensor, a first plane and axes", [](Origin &o) {
        o.tensors.resize(2);
        o.tensors[1].lat = o.lat;
        o.tensors[1].lon = o.lon;
        o.tensors[1].depth = o.depth;
        o.tensors[1].algorithm = "BDC";
      });
  EXPECT_THAT(read.tensors, SizeIs(1));
}

TEST(IsfWriter, WritesAMessageWithoutEvents) {
  const ReadEvents result = read_events(write_isf({}));
  EXPECT_EQ(result.format, "isf");
  EXPECT_THAT(result.events, IsEmpty());
  EXPECT_THAT(result.refused, IsEmpty());
}

}  // namespace
}  // namespace ksutil::exchange
