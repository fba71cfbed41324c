/* A model file read wrongly gives plausible, wrong times for everything. */
#include "platform/traveltime/internal/earth_model.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace ksutil::traveltime {
namespace {

const std::string kMantle =
    "P\nS\n0 5.8 3.36 2.7\n20\t5.9 3.4 2.7\r\n20 6.5 3.7 3\n2889 13 7 5\n";
const std::string kCoreLines = "2889 8 0 9\n5150 10 0 12\n5150 11 3.5 12\n";

TEST(EarthModelFile, GivesPointsAndBoundaries) {
  const auto model = parse_tvel(kMantle + kCoreLines + "6371 11.2 3.6 13\n\n");
  ASSERT_TRUE(model.has_value());
  EXPECT_EQ(model->points.size(), 8u);
  EXPECT_EQ(model->points[1].depth, 20.0);
  EXPECT_EQ(model->points[1].vp, 5.9);
  EXPECT_EQ(model->points[2].vs, 3.7);
  EXPECT_EQ(model->radius, 6371.0);
  EXPECT_EQ(model->core_depth, 2889.0);
  EXPECT_EQ(model->inner_core_depth, 5150.0);
}

TEST(EarthModelFile, IsRefusedWhenRaysCannotBeTraced) {
  const std::string end = "6371 11.2 3.6 13\n";
  const std::vector<std::string> bad = {
      "",
      "P\nS\n",
      "P\nS\n0 5.8 3.36 2.7\n",
      kMantle,                                    // no core
      kMantle + kCoreLines + "6371 11.2\n",       // a short row
      kMantle + kCoreLines + "6371 11.2 x 13\n",  // not a number
      kMantle + kCoreLines + "6371 nan 3.6 13\n",
      kMantle + kCoreLines + "6371 -11 3.6 13\n",
      kMantle + kCoreLines + "5000 11 3.5 12\n" + end,  // upward
      kMantle + "2800 8 0 9\n" + end,                   // upward at the core
      kMantle + "2889 8 0 9\n6371 11.2 3.6 13\n",       // melts without a boundary
      kMantle + kCoreLines + "5200 1 3.5 12\n" + end,   // rays bend down
      "P\nS\n10 5.8 3.36 2.7\n2889 13 7 5\n" + kCoreLines + end,  // no surface
  };
  for (const std::string &text : bad)
    EXPECT_FALSE(parse_tvel(text).has_value()) << text;
}

}  // namespace
}  // namespace ksutil::traveltime
