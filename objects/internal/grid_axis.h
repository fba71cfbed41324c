/* Locating many values on one axis of a grid. */
#ifndef KSUTIL_OBJECTS_INTERNAL_GRID_AXIS_H
#define KSUTIL_OBJECTS_INTERNAL_GRID_AXIS_H

namespace ksutil::grids {

/* The two coordinates around a value; the same one at an end and off the axis. */
struct Interval {
  int i0, i1;
};

/* Finds what ksgrid_find_interval finds, faster for values that follow one another: on
 * evenly spaced coordinates the interval is computed, on others it is first looked for
 * beside that of the value before.  Only a guess that holds is used; all else is
 * searched for.  Reads the coordinates of [n] for as long as it lives. */
class Axis {
 public:
  Axis(int n, const float *coords);

  /* -1 below the axis, 1 above it, else 0. */
  int locate(float value, Interval &found) {
    if (!ascending_) return locate_by_steps(value, found);
    if (!(first_ <= value && value <= last_) || n_ == 1) return outside(value, found);
    int upper = even_ ? static_cast<int>((value - first_) * per_unit_) + 1 : upper_;
    if (upper >= n_) upper = n_ - 1;
    if (value <= coords_[upper - 1]) {
      upper -= upper > 1 ? 1 : 0;
    } else if (value > coords_[upper]) {
      ++upper;  // the last coordinate is no less than the value
    }
    if (!(value <= coords_[upper]) || (value <= coords_[upper - 1] && upper > 1)) {
      upper = search(value);
    }
    upper_ = upper;
    found = {upper - 1, upper};
    return 0;
  }

 private:
  int locate_by_steps(float value, Interval &found) const;
  int outside(float value, Interval &found) const;
  int search(float value) const;

  int n_;
  const float *coords_;
  double first_, last_;
  double per_unit_ = 0.0;  // intervals in a unit of the coordinates
  bool ascending_ = true;
  bool even_ = false;
  int upper_ = 1;  // end of the interval found before
};

}  // namespace ksutil::grids
#endif
