/* Mechanisms that are published with the wrong planes, axes or sizes: signs and orders of the
 * two systems, degenerate tensors, planes that are horizontal or vertical. */
#include "mechanisms/ksmoment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/geo/angle.h"
#include "tests/mechanisms/random_tensors.h"
#include "tests/support/register.h"

using namespace ksutil;
using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pointwise;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr Moment kExplosion{1, 1, 1, 0, 0, 0}, kZero{};

double size_of(const Moment &m) { return ksmoment_moment(m.data()); }

void expect_tensor(const Moment &m, const Moment &expected, double within) {
  EXPECT_THAT(m,
              Pointwise(DoubleNear(within * (size_of(expected) + 1e-300)), expected));
}

}  // namespace

TEST(Ksmoment, FollowsThePublishedMechanismOfTheCatalogueForm) {
  /* The event that explains the form of the global CMT catalogue: tensor, axes, planes. */
  const Moment m{0.838e17, -0.005e17, -0.833e17, 1.050e17, -0.369e17, 0.044e17};
  KSMomentAxis axes[3];
  KSMomentPlane planes[2];
  ASSERT_EQ(ksmoment_axes(m.data(), axes), 0);
  ASSERT_EQ(ksmoment_planes(m.data(), planes), 0);
  EXPECT_NEAR(axes[0].value, 1.581e17, 1e14);
  EXPECT_NEAR(axes[0].plunge, 56, 0.5);
  EXPECT_NEAR(axes[0].azimuth, 12, 0.5);
  EXPECT_NEAR(axes[1].value, -0.537e17, 1e14);
  EXPECT_NEAR(axes[1].azimuth, 140, 0.5);
  EXPECT_NEAR(axes[2].value, -1.044e17, 1e14);
  EXPECT_NEAR(axes[2].plunge, 24, 0.5);
  EXPECT_NEAR(axes[2].azimuth, 241, 0.5);
  EXPECT_NEAR(ksmoment_dc_moment(m.data()), 1.312e17, 1e14);
  EXPECT_NEAR(planes[0].strike, 9, 0.7);
  EXPECT_NEAR(planes[0].dip, 29, 0.7);
  EXPECT_NEAR(planes[0].rake, 142, 0.7);
  EXPECT_NEAR(planes[1].strike, 133, 0.7);
  EXPECT_NEAR(planes[1].dip, 72, 0.7);
  EXPECT_NEAR(planes[1].rake, 66, 0.7);
}

TEST(Ksmoment, TurnsBetweenItsTwoSystems) {
  /* A vertical fault that strikes north and moves left-laterally: mxy alone, and positive. */
  Moment m = couple(0, 90, 0), ned{};
  ASSERT_EQ(ksmoment_to_ned(m.data(), ned.data()), 0);
  expect_tensor(ned, {0, 0, 0, 1, 0, 0}, 1e-12);
  /* A thrust of 45 degrees opens upwards: T is vertical. */
  expect_tensor(couple(0, 45, 90), {1, 0, -1, 0, 0, 0}, 1e-12);
  for (const Moment &tensor : tensors_of_every_kind()) {
    ksmoment_to_ned(tensor.data(), ned.data());
    ksmoment_from_ned(ned.data(), m.data());
    EXPECT_EQ(m, tensor);
  }
}

TEST(Ksmoment, AxesRebuildTheTensor) {
  for (const Moment &m : tensors_of_every_kind()) {
    double values[3], v[9];
    ASSERT_EQ(ksmoment_eigen(m.data(), values, v), 0);
    EXPECT_GE(values[0], values[1]);
    EXPECT_GE(values[1], values[2]);
    Moment again{};
    constexpr int kPlaces[6][2] = {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}};
    for (std::size_t i = 0; i < 6; i++) {
      for (int k = 0; k < 3; k++) {
        again[i] += values[k] * v[3 * k + kPlaces[i][0]] * v[3 * k + kPlaces[i][1]];
      }
    }
    expect_tensor(again, m, 1e-12);
    const double triple = v[0] * (v[4] * v[8] - v[5] * v[7]) -
                          v[1] * (v[3] * v[8] - v[5] * v[6]) +
                          v[2] * (v[3] * v[7] - v[4] * v[6]);
    EXPECT_NEAR(triple, 1.0, 1e-12);
    EXPECT_LE(v[0], 1e-14);  // not up
    EXPECT_LE(v[3], 1e-14);
    const double norm = std::hypot(values[0], values[1], values[2]) / std::sqrt(2.0);
    EXPECT_NEAR(ksmoment_moment(m.data()), norm, 1e-12 * norm);
  }
}

TEST(Ksmoment, PlanesRebuildTheDoubleCouple) {
  for (double strike = 0; strike < 360; strike += 22.5) {
    for (const double dip : {0.0, 1e-9, 0.5, 30.0, 45.0, 60.0, 89.9, 90.0}) {
      for (const double rake : {-180.0, -135.0, -90.0, -1.0, 0.0, 40.0, 90.0, 179.0}) {
        const Moment m = couple(strike, dip, rake, 3e18);
        EXPECT_NEAR(ksmoment_moment(m.data()), 3e18, 1e6);
        KSMomentPlane planes[2], other;
        ASSERT_EQ(ksmoment_planes(m.data(), planes), 0);
        for (const KSMomentPlane &plane : planes) {
          EXPECT_TRUE(plane.strike >= 0 && plane.strike < 360) << plane.strike;
          EXPECT_TRUE(plane.dip >= 0 && plane.dip <= 90) << plane.dip;
          EXPECT_TRUE(plane.rake > -180 && plane.rake <= 180) << plane.rake;
          expect_tensor(couple(plane.strike, plane.dip, plane.rake, 3e18), m, 1e-6);
        }
        EXPECT_LE(planes[0].dip, planes[1].dip + 1e-5);
        const KSMomentPlane given{strike, dip, rake};
        ASSERT_EQ(ksmoment_other_plane(&given, &other), 0);
        expect_tensor(couple(other.strike, other.dip, other.rake, 3e18), m, 1e-6);
        double normal[3], slip[3];
        ASSERT_EQ(ksmoment_slip(&given, normal, slip), 0);
        EXPECT_LE(normal[2], 0.0);
        EXPECT_NEAR(normal[0] * slip[0] + normal[1] * slip[1] + normal[2] * slip[2], 0,
                    1e-12);
      }
    }
  }
  KSMomentPlane planes[2];
  EXPECT_EQ(ksmoment_planes(kExplosion.data(), planes), -1);
  EXPECT_EQ(ksmoment_planes(kZero.data(), planes), -1);
  EXPECT_THAT(test::taken_messages(),
              HasSubstr("ksmoment_planes: The tensor has no double"));
}

TEST(Ksmoment, SharesOfThePartsAddUp) {
  KSMomentParts parts;
  const auto shares = [&](const Moment &m) {
    EXPECT_EQ(ksmoment_parts(m.data(), &parts), 0);
    return std::array<double, 3>{parts.iso, parts.dc, parts.clvd};
  };
  const auto near = [](double a, double b, double c) {
    return ElementsAre(DoubleNear(a, 1e-9), DoubleNear(b, 1e-9), DoubleNear(c, 1e-9));
  };
  EXPECT_THAT(shares(kExplosion), near(100, 0, 0));
  EXPECT_THAT(shares({-2, -2, -2, 0, 0, 0}), near(-100, 0, 0));
  EXPECT_THAT(shares(couple(30, 60, 77)), near(0, 100, 0));
  EXPECT_THAT(shares({2, -1, -1, 0, 0, 0}), near(0, 0, 100));
  EXPECT_THAT(shares({1, 1, -2, 0, 0, 0}), near(0, 0, -100));
  EXPECT_THAT(shares(kZero), near(0, 0, 0));
  for (const Moment &m : tensors_of_every_kind()) {
    shares(m);
    EXPECT_NEAR(std::fabs(parts.iso) + std::fabs(parts.clvd) + parts.dc, 100, 1e-9);
    EXPECT_GE(parts.dc, -1e-9);
  }
}

TEST(Ksmoment, MeasuresTheTurnBetweenMechanisms) {
  const Moment m = couple(130, 40, 75);
  EXPECT_NEAR(ksmoment_rotation(m.data(), m.data()), 0, 1e-5);
  /* Turned about the vertical. */
  for (const double turn : {0.5, 20.0, 60.0, 90.0}) {
    const Moment turned = couple(turn, 90, 0), straight = couple(0, 90, 0);
    EXPECT_NEAR(ksmoment_rotation(straight.data(), turned.data()),
                std::min(turn, 180 - turn), 1e-6);
  }
  /* T and P exchanged are a quarter turn about N apart, not the half that the two strikes
   * suggest; nothing is farther apart than 120 degrees. */
  EXPECT_NEAR(ksmoment_rotation(couple(0, 90, 0).data(), couple(0, 90, 180).data()), 90,
              1e-6);
  std::vector<Moment> all = tensors_of_every_kind();
  for (std::size_t i = 1; i < all.size(); i++) {
    const double turn = ksmoment_rotation(all[i - 1].data(), all[i].data());
    EXPECT_LE(turn, 120.0 + 1e-6);
    EXPECT_NEAR(turn, ksmoment_rotation(all[i].data(), all[i - 1].data()), 1e-6);
  }
}

TEST(Ksmoment, RadiatesAsTheory) {
  /* Aki & Richards (2002), eqs. 4.89 to 4.91, written out for strike, dip and rake. */
  const double strike = radians(40), dip = radians(65), rake = radians(-30);
  const Moment m = couple(40, 65, -30);
  for (double azimuth = 0; azimuth < 360; azimuth += 33) {
    for (double takeoff = 0; takeoff <= 180; takeoff += 30) {
      const double f = radians(azimuth) - strike, i = radians(takeoff);
      const double cr = std::cos(rake), sr = std::sin(rake), sd = std::sin(dip),
                   cd = std::cos(dip), s2d = std::sin(2 * dip), c2d = std::cos(2 * dip);
      const double p =
          cr * sd * std::pow(std::sin(i), 2) * std::sin(2 * f) -
          cr * cd * std::sin(2 * i) * std::cos(f) +
          sr * s2d *
              (std::pow(std::cos(i), 2) - std::pow(std::sin(i) * std::sin(f), 2)) +
          sr * c2d * std::sin(2 * i) * std::sin(f);
      const double sv =
          sr * c2d * std::cos(2 * i) * std::sin(f) -
          cr * cd * std::cos(2 * i) * std::cos(f) +
          0.5 * cr * sd * std::sin(2 * i) * std::sin(2 * f) -
          0.5 * sr * s2d * std::sin(2 * i) * (1 + std::pow(std::sin(f), 2));
      const double sh = cr * cd * std::cos(i) * std::sin(f) +
                        cr * sd * std::sin(i) * std::cos(2 * f) +
                        sr * c2d * std::cos(i) * std::cos(f) -
                        0.5 * sr * s2d * std::sin(i) * std::sin(2 * f);
      double got[3];
      ASSERT_EQ(
          ksmoment_radiation(m.data(), azimuth, takeoff, &got[0], &got[1], &got[2]), 0);
      EXPECT_NEAR(got[0], p, 1e-12);
      EXPECT_NEAR(got[1], sv, 1e-12);
      EXPECT_NEAR(got[2], sh, 1e-12);
    }
  }
}

TEST(Ksmoment, RefusesWhatIsNoTensor) {
  double out[9] = {7};
  KSMomentPlane plane{0, 91, 0};
  EXPECT_EQ(ksmoment_eigen(nullptr, out, out), -1);
  for (const double bad : {kNan, HUGE_VAL, 1e200}) {
    const Moment m{1, bad, 0, 0, 0, 0};
    KSMomentAxis axes[3];
    EXPECT_EQ(ksmoment_axes(m.data(), axes), -1);
    EXPECT_TRUE(std::isnan(ksmoment_moment(m.data())));
    EXPECT_TRUE(std::isnan(ksmoment_rotation(m.data(), kExplosion.data())));
    char tag[KS_TAG_SIZE] = "x";
    EXPECT_EQ(ksmoment_outline(m.data(), 0, 0, nullptr, tag), nullptr);
    EXPECT_STREQ(tag, "");
  }
  EXPECT_EQ(ksmoment_from_plane(&plane, 1, out), -1);
  plane.dip = 45;
  EXPECT_EQ(ksmoment_from_plane(&plane, -1, out), -1);
  EXPECT_TRUE(std::isnan(ksmoment_magnitude(0)));
  EXPECT_EQ(ksmoment_radiation(kExplosion.data(), 0, 181, out, out, out), -1);
  EXPECT_EQ(ksmoment_project(0, 91, 0, 0, out, out), -1);
  EXPECT_EQ(ksmoment_nodal_lines(kExplosion.data(), 2, 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(out[0], 7);
  EXPECT_THAT(test::taken_messages(),
              HasSubstr("ksmoment_eigen: Not a moment tensor.\n"));
  EXPECT_NEAR(ksmoment_magnitude(3.981e26), 11.667, 1e-3);
  EXPECT_NEAR(ksmoment_moment_of_magnitude(ksmoment_magnitude(2e20)), 2e20, 1e9);
  const Moment large{1e150, -1e150, 1e149, 1e150, 0, 1e150},
      small{4e-310, 0, 0, 0, 0, 0};
  EXPECT_TRUE(std::isfinite(ksmoment_moment(large.data())));
  EXPECT_NEAR(ksmoment_dc_moment(small.data()) / 2e-310, 1.0, 1e-9);
}

TEST(Ksmoment, WritesRowsThatVerifyAgainstTheirTensor) {
  Dbptr db = dbtmp("css3.0");
  Dbptr mt = dblookup(db, nullptr, "mt", nullptr, nullptr);
  mt.record = dbaddv(mt, "mtid", 1L, static_cast<char *>(nullptr));
  double m[6];
  EXPECT_EQ(ksmoment_from_row(mt, m), -1);
  EXPECT_THAT(test::taken_messages(),
              HasSubstr("ksmoment_from_row: The row has no tensor"));
  const Moment given = couple(120, 50, -60, 2.5e19);
  ASSERT_EQ(ksmoment_to_row(given.data(), mt), 0);
  ASSERT_EQ(ksmoment_from_row(mt, m), 0);
  for (std::size_t i = 0; i < 6; i++) EXPECT_NEAR(m[i], given[i], 1e14);
  double mw, strike, dip, rake, tval, pctdc;
  ASSERT_EQ(dbgetv(mt, "mw", &mw, "strike1", &strike, "dip1", &dip, "rake1", &rake,
                   "tval", &tval, "pctdc", &pctdc, static_cast<char *>(nullptr)),
            0);
  EXPECT_NEAR(mw, ksmoment_magnitude(2.5e19), 0.01);
  EXPECT_NEAR(tval, 2.5e19, 1e14);
  EXPECT_NEAR(pctdc, 100, 0.1);
  expect_tensor(couple(strike, dip, rake, 2.5e19), given, 0.01);
  ASSERT_EQ(ksmoment_to_row(kExplosion.data(), mt), 0);
  ASSERT_EQ(dbgetv(mt, "strike1", &strike, static_cast<char *>(nullptr)), 0);
  EXPECT_EQ(strike, -999.0);
  EXPECT_EQ(ksmoment_to_row(given.data(), dbinvalid()), -1);
  test::taken_messages();
  dbclose(db);
}
