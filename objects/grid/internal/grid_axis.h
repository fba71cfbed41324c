/* grid_axis: locates many values on one axis of a grid. */
#ifndef KSUTIL_OBJECTS_GRID_INTERNAL_GRID_AXIS_H
#define KSUTIL_OBJECTS_GRID_INTERNAL_GRID_AXIS_H

namespace ksutil::grids {

/* The place of a value between two coordinates of an axis. */
struct Place {
  int i0, i1;   // both -1 off the axis; equal where there is no interval
  double part;  // of the way from i0 to i1, 0 to 1; a half between equal coordinates
};

/* Finds the intervals that ksgrid_find_interval finds.  On evenly spaced coordinates it
 * computes them; on other ascending coordinates it tries the interval of the previous
 * value and the one after it before it searches the axis.  Coordinates that do not
 * ascend are searched one by one.
 * Reads the coordinates for as long as it lives. */
class Axis {
 public:
  /* coords   [n], n >= 1 */
  Axis(int n, const float *coords);

  /* The places of `count` values. */
  void locate(const float *values, int count, Place *places) const;

 private:
  enum class Kind { kEven, kUneven, kUnordered };

  bool is_even() const;

  int n_;
  const float *coords_;
  double per_unit_;  // intervals per unit of the coordinates, on an even axis
  Kind kind_;
};

}  // namespace ksutil::grids
#endif
