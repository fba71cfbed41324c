/* A column or a unit that is wrong gives a plausible moment tensor of another earthquake. */
#include "formats/exchange/format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/scratch.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/* A vertical strike-slip fault that strikes north: with x north and y east the only element
 * is Mxy = M0 (Aki & Richards, 2nd ed., box 4.4), which is -Mtp. */
const std::string kStrikeSlip =
    "PDE  2005/01/01 01:20:05.4  13.78  -88.78 193.1 5.0 0.0 EL SALVADOR             \n"
    "C200501010120A   B:  4    4  40 S: 27   33  50 M:  0    0   0 CMT: 1 TRIHD:  0.6\n"
    "CENTROID:     -0.4 0.9  13.76 0.06  -89.08 0.09 162.8 12.5 FREE S-20050322125201\n"
    "23  0.000 0.201  0.000 0.231  0.000 0.270  0.000 0.121  0.000 0.161 -1.000 0.240\n"
    "V10   1.000  0  45   0.000 90   0  -1.000  0 135   1.000   0 90    0  90 90  "
    "180\n";

struct NdkResult {
  std::vector<Event> events;
  std::vector<std::string> refused, unplaced;
};

NdkResult read_ndk(const std::string &text) {
  const tools::ScratchFolder folder;
  std::string problem;
  const auto input = Input::open(folder.write("x.ndk", text), problem);
  const auto reader = open_reader(*input, recognise(input->head()), problem);
  NdkResult result;
  if (reader == nullptr) {
    ADD_FAILURE() << problem;
    return result;
  }
  for (Event event;;) {
    const Reader::Got got = reader->next(event);
    if (got == Reader::Got::kRecord) result.events.push_back(event);
    if (got == Reader::Got::kRefused) {
      result.refused.push_back(std::to_string(reader->line()) + ": " +
                               reader->problem());
    }
    if (got == Reader::Got::kEnd || got == Reader::Got::kFailed) break;
  }
  for (const Unplaced &name : reader->without_place()) {
    result.unplaced.push_back(name.name);
  }
  return result;
}

TEST(NdkReader, GivesHypocentreCentroidAndTensor) {
  const NdkResult result = read_ndk(kStrikeSlip);
  ASSERT_EQ(result.events.size(), 1U);
  const Event &event = result.events[0];
  EXPECT_EQ(event.id, "C200501010120A");
  EXPECT_EQ(event.place, "EL SALVADOR");
  EXPECT_NEAR(event.updated, 1111495921.0, 1e-6);
  const Origin &origin = event.origins.at(0);
  EXPECT_NEAR(origin.time, 1104542405.4, 1e-5);
  EXPECT_EQ(origin.lon, -88.78);
  EXPECT_EQ(origin.depth, 193.1);
  EXPECT_EQ(origin.author, "PDE");
  ASSERT_EQ(origin.magnitudes.size(), 2U) << "an MS of 0.0 is none";
  EXPECT_EQ(origin.magnitudes[0].type, "mb");
  EXPECT_EQ(origin.magnitudes[1].type, "mwc");
  const MomentTensor &tensor = origin.tensors.at(0);
  EXPECT_NEAR(tensor.time, 1104542405.0, 1e-5);
  EXPECT_EQ(tensor.lon, -89.08);
  EXPECT_EQ(tensor.depth, 162.8);
  /* 1e23 dyne cm are 1e16 N m; (23 - 16.1) / 1.5 = 4.6. */
  EXPECT_NEAR(tensor.elements[5], -1e16, 1e4);
  EXPECT_EQ(tensor.elements[0], 0.0);
  EXPECT_NEAR(tensor.moment, 1e16, 1e4);
  EXPECT_NEAR(tensor.mw, 4.6, 1e-9);
  EXPECT_NEAR(tensor.axes[0], 1e16, 1e4);
  EXPECT_EQ(tensor.axes[2], 45.0);
  EXPECT_NEAR(tensor.axes[6], -1e16, 1e4);
  EXPECT_THAT(tensor.plane1, ElementsAre(0.0, 90.0, 0.0));
  EXPECT_THAT(tensor.plane2, ElementsAre(90.0, 90.0, 180.0));
  EXPECT_EQ(tensor.stations, 27) << "a station may have both kinds of waves";
  EXPECT_EQ(tensor.components, 37);
  EXPECT_THAT(result.unplaced,
              ElementsAre("shortest periods of the data", "types of sources (CMT)",
                          "moment rate functions", "errors of centroids",
                          "types of centroid depths", "errors of tensor elements",
                          "versions of the program"));
}

TEST(NdkReader, AFaultCostsOneEvent) {
  const auto lines = [](int first, int last) {
    std::string text;
    std::size_t from = 0;
    for (int line = 1; line <= last; line++) {
      const std::size_t end = kStrikeSlip.find('\n', from) + 1;
      if (line >= first) text += kStrikeSlip.substr(from, end - from);
      from = end;
    }
    return text;
  };
  std::string bad_number = kStrikeSlip;
  bad_number.replace(bad_number.find("-1.000 0.240"), 6, "-1.x00");
  const NdkResult result = read_ndk(
      lines(1, 3) + kStrikeSlip + "noise\nmore noise\n" + kStrikeSlip + bad_number +
      lines(1, 1) + lines(4, 5) + lines(2, 3) + "\n" + kStrikeSlip + lines(1, 4));
  EXPECT_EQ(result.events.size(), 3U);
  EXPECT_THAT(result.refused, ElementsAre("1: the event has fewer than five lines",
                                          HasSubstr("9: hypocentre line is 'noise'"),
                                          HasSubstr("16: moment tensor is '-1.x00'"),
                                          HasSubstr("21: centroid is"),
                                          "32: the event has fewer than five lines"));
}

}  // namespace
}  // namespace ksutil::exchange
