/* ticks: chooses the places and the texts of the ticks of an axis. */
#ifndef KSUTIL_TOOLS_PLOT_TICKS_H
#define KSUTIL_TOOLS_PLOT_TICKS_H

#include <string>
#include <vector>

#include "tools/plot/figure.h"

namespace ksutil::plot {

struct Tick {
  double value = 0.0;
  std::string label;    // empty: a minor tick
  std::string context;  // a second line: the date above which a time stands
};

struct Ticks {
  std::vector<Tick> ticks;  // ascending, all within the range
  std::string factor;  // what the labels are to be multiplied by: "×10⁶", or empty
};

/* Ticks for low < high, both finite; `count` is the number of labels that would look well.
 * Labels are as short as the steps allow and never repeat. */
Ticks linear_ticks(double low, double high, int count);

/* 0 < low < high: decades with minor ticks, or fewer or more as the range demands. */
Ticks log_ticks(double low, double high, int count);

/* Epoch seconds: steps of 1 microsecond to centuries that follow the clock and the
 * calendar (UTC). */
Ticks time_ticks(double low, double high, int count);

/* Degrees with a hemisphere; longitudes may pass 180. */
Ticks degree_ticks(double low, double high, int count, TickForm form);

/* By the axis's scale and form. */
Ticks axis_ticks(const Axis &axis, double low, double high, int count);

/* A number as keys show it: enough digits to tell values of this range apart. */
std::string short_number(double value, double range);

}  // namespace ksutil::plot
#endif
