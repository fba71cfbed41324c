/* Beachballs that are filled on the wrong side, or lose a piece at the rim: every area is
 * compared with the sign of the radiation, every line with its zero. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>

#include "mechanisms/ksmoment.h"
#include "platform/geo/angle.h"
#include "platform/trace/trace.h"
#include "tests/mechanisms/random_tensors.h"

using namespace ksutil;

namespace {

struct FreeVector {
  void operator()(KSVector *vector) const { ksvector_free_vector(vector); }
};
using Vector = std::unique_ptr<KSVector, FreeVector>;

struct XY {
  double x, y;
};

std::vector<std::vector<XY>> pieces_of(const KSVector *vector) {
  std::vector<std::vector<XY>> pieces;
  bool fresh = true;
  for (int i = 0; vector != nullptr && i < vector->npts; i++) {
    const KSVectorPoint &point = vector->points[i];
    if (is_gap_sample(point.x)) {
      fresh = true;
      continue;
    }
    if (fresh) pieces.emplace_back();
    fresh = false;
    pieces.back().push_back({point.x, point.y[0]});
  }
  return pieces;
}

/* Even-odd. */
bool contains(const std::vector<std::vector<XY>> &pieces, XY at) {
  bool inside = false;
  for (const std::vector<XY> &piece : pieces) {
    for (std::size_t i = 0, j = piece.size() - 1; i < piece.size(); j = i++) {
      const XY &a = piece[i], &b = piece[j];
      if ((a.y > at.y) != (b.y > at.y) &&
          at.x < (b.x - a.x) * (at.y - a.y) / (b.y - a.y) + a.x) {
        inside = !inside;
      }
    }
  }
  return inside;
}

/* P at a place on the disk: the projections are inverted here on their own. */
double radiation_at(const Moment &m, XY at, int hemisphere, int projection) {
  const double radius = std::hypot(at.x, at.y);
  const double inclination =
      projection == KSMOMENT_STEREOGRAPHIC
          ? 2 * std::atan(radius)
          : 2 * std::asin(std::min(1.0, radius / std::sqrt(2.0)));
  const double azimuth = degrees(std::atan2(at.x, at.y));
  const double takeoff =
      hemisphere == KSMOMENT_LOWER ? degrees(inclination) : 180 - degrees(inclination);
  double p = 0;
  EXPECT_EQ(ksmoment_radiation(m.data(), azimuth, std::clamp(takeoff, 0.0, 180.0), &p,
                               nullptr, nullptr),
            0);
  return p / (ksmoment_moment(m.data()) + 1e-300);
}

constexpr struct {
  int hemisphere, projection;
} kViews[] = {{KSMOMENT_LOWER, KSMOMENT_EQUAL_AREA},
              {KSMOMENT_UPPER, KSMOMENT_EQUAL_AREA},
              {KSMOMENT_LOWER, KSMOMENT_STEREOGRAPHIC}};

}  // namespace

TEST(KsmomentCurves, OutlinesHoldTheOutwardMotion) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> coordinate(-1, 1);
  for (const Moment &m : tensors_of_every_kind()) {
    for (const auto &[hemisphere, projection] : kViews) {
      const Vector outline(
          ksmoment_outline(m.data(), hemisphere, projection, nullptr, nullptr));
      ASSERT_NE(outline, nullptr);
      const auto pieces = pieces_of(outline.get());
      for (const auto &piece : pieces) {
        EXPECT_EQ(piece.front().x, piece.back().x);
        EXPECT_EQ(piece.front().y, piece.back().y);
      }
      for (int i = 0; i < 60; i++) {
        const XY at{coordinate(random), coordinate(random)};
        if (std::hypot(at.x, at.y) > 0.995) continue;
        const double p = radiation_at(m, at, hemisphere, projection);
        if (std::fabs(p) < 0.02) continue;
        EXPECT_EQ(contains(pieces, at), p > 0)
            << m[0] << ' ' << m[1] << ' ' << m[2] << ' ' << m[3] << ' ' << m[4] << ' '
            << m[5] << " at " << at.x << ' ' << at.y << ", P " << p << ", view "
            << hemisphere << projection;
      }
    }
  }
}

TEST(KsmomentCurves, NothingIsRadiatedOnNodalLines) {
  for (const Moment &m : tensors_of_every_kind()) {
    for (const auto &[hemisphere, projection] : kViews) {
      const Vector lines(
          ksmoment_nodal_lines(m.data(), hemisphere, projection, nullptr, nullptr));
      const auto pieces = pieces_of(lines.get());
      EXPECT_LE(pieces.size(), 2U);
      for (const auto &piece : pieces) {
        for (const XY &at : piece) {
          EXPECT_LE(std::hypot(at.x, at.y), 1 + 1e-9);
          EXPECT_NEAR(radiation_at(m, at, hemisphere, projection), 0, 1e-6);
        }
        const double ends[2] = {std::hypot(piece.front().x, piece.front().y),
                                std::hypot(piece.back().x, piece.back().y)};
        const bool closed =
            piece.front().x == piece.back().x && piece.front().y == piece.back().y;
        EXPECT_TRUE(closed || (ends[0] > 1 - 1e-6 && ends[1] > 1 - 1e-6));
      }
    }
  }
}

TEST(KsmomentCurves, PlanesRunFromRimToRimThroughTheirDip) {
  const Moment m = couple(30, 60, 90);  // the other plane: 210, 30, 90
  const Vector lines(ksmoment_dc_nodal_lines(m.data(), KSMOMENT_LOWER,
                                             KSMOMENT_EQUAL_AREA, nullptr, nullptr));
  const auto pieces = pieces_of(lines.get());
  ASSERT_EQ(pieces.size(), 2U);
  for (const auto &piece : pieces) {
    EXPECT_NEAR(std::fabs(piece.front().x), std::sin(radians(30)), 1e-9);
    EXPECT_NEAR(piece.front().x, -piece.back().x, 1e-9);
    EXPECT_NEAR(piece.front().y, -piece.back().y, 1e-9);
  }
  double x, y;
  ASSERT_EQ(ksmoment_project(120, 60, KSMOMENT_LOWER, KSMOMENT_EQUAL_AREA, &x, &y), 0);
  double nearest = 1;
  for (const auto &piece : pieces) {
    for (const XY &at : piece)
      nearest = std::min(nearest, std::hypot(at.x - x, at.y - y));
  }
  EXPECT_LT(nearest, 0.01);
  /* A direction that points up is seen from its other end. */
  double x2, y2;
  ksmoment_project(300, -60, KSMOMENT_LOWER, KSMOMENT_EQUAL_AREA, &x2, &y2);
  EXPECT_NEAR(x, x2, 1e-12);
  EXPECT_NEAR(y, y2, 1e-12);
}

TEST(KsmomentCurves, SourcesOfOneSignHaveNoLines) {
  for (const double sign : {1.0, -1.0}) {
    const Moment m{sign, 2 * sign, sign, 0, 0, 0};
    const Vector lines(ksmoment_nodal_lines(m.data(), 0, 0, nullptr, nullptr));
    ASSERT_NE(lines, nullptr);
    EXPECT_EQ(lines->npts, 0);
    const Vector outline(ksmoment_outline(m.data(), 0, 0, nullptr, nullptr));
    EXPECT_EQ(contains(pieces_of(outline.get()), {0.1, 0.2}), sign > 0);
  }
  const Moment zero{};
  const Vector planes(ksmoment_dc_nodal_lines(zero.data(), 0, 0, nullptr, nullptr));
  ASSERT_NE(planes, nullptr);
  EXPECT_EQ(planes->npts, 0);
}
