/* Tensors of every kind, as tests need them. */
#ifndef KSUTIL_TESTS_MECHANISMS_RANDOM_TENSORS_H
#define KSUTIL_TESTS_MECHANISMS_RANDOM_TENSORS_H

#include <array>
#include <random>
#include <vector>

#include "mechanisms/ksmoment.h"

namespace ksutil {

using Moment = std::array<double, 6>;

inline Moment couple(double strike, double dip, double rake, double moment = 1.0) {
  Moment m{};
  const KSMomentPlane plane{strike, dip, rake};
  EXPECT_EQ(ksmoment_from_plane(&plane, moment, m.data()), 0);
  return m;
}

/* Horizontal and vertical planes, dipoles, explosions with a double couple, and at random. */
inline std::vector<Moment> tensors_of_every_kind() {
  std::vector<Moment> all{
      {0, 1, -1, 0, 0, 0},   {1, -1, 0, 0, 0, 0},   {-1, 0, 1, 0, 0, 0},
      {2, -1, -1, 0, 0, 0},  {-2, 1, 1, 0, 0, 0},   {-1, 2, -1, 0, 0, 0},
      {1, 0, 0, 0, 0, 0},    {0, -1, 0, 0, 0, 0},   {1, 1, -1, 0, 0, 0},
      {0, 0, 0, 1, 0, 0},    {0, 0, 0, 0, 1, 0},    {0, 0, 0, 0, 0, 1},
      {3, 2, -0.1, 0, 0, 0}, {0.1, -3, -2, 0, 0, 0}};
  for (const double strike : {0.0, 45.0, 90.0, 137.0}) {
    for (const double dip : {0.0, 1e-7, 30.0, 45.0, 90.0}) {
      for (const double rake : {-90.0, 0.0, 17.0, 90.0, 180.0}) {
        all.push_back(couple(strike, dip, rake));
      }
    }
  }
  std::mt19937 random(20051);
  std::normal_distribution<double> element;
  for (int i = 0; i < 300; i++) {
    Moment m{};
    for (double &value : m) value = element(random);
    const double explosion = 0.7 * (i % 5 - 2);
    for (std::size_t k = 0; k < 3; k++) m[k] += explosion;
    all.push_back(m);
  }
  return all;
}

}  // namespace ksutil
#endif
