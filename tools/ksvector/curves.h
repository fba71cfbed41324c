/* curves: makes figures of vectors. */
#ifndef KSUTIL_TOOLS_KSVECTOR_CURVES_H
#define KSUTIL_TOOLS_KSVECTOR_CURVES_H

#include <string>
#include <vector>

#include "objects/ksvector.h"
#include "tools/plot/figure.h"

namespace ksutil::tools {

/* A vector and its name in the figure. */
struct Curve {
  const KSVector *vector;
  std::string name;
  std::string amplitude_unit = {};  // of a response; empty: unknown
};

enum class CurveStyle {
  kAuto,  // lines, or points where labels define their look
  kLines,
  kPoints,
  kBoth
};

/* The unit of the phases of response files.  The format says degrees, but some files
 * have radians. */
enum class PhaseUnit { kAuto, kDegrees, kRadians };

struct CurveOptions {
  CurveStyle style = CurveStyle::kAuto;
  bool log_x = false, log_y = false;
  bool time = false;  // x of point vectors is epoch seconds
  std::string x_label, y_label;
  PhaseUnit phase = PhaseUnit::kAuto;
};

/* The unit that a comment of a response file gives for the amplitudes, as "count/nm" in
 * "Amp(count/nm)"; empty for none. */
std::string amplitude_unit(const std::string &file);

/* Adds panels of amplitude and phase over frequency, for vectors of responses.  Phases are
 * drawn in degrees from -180 to 180; a line ends where the phase jumps from one end to the
 * other. */
void add_response_panels(const std::vector<Curve> &curves, const CurveOptions &options,
                         plot::Figure &figure);

/* Adds one panel with all y values of point vectors. */
void add_point_panel(const std::vector<Curve> &curves, const CurveOptions &options,
                     plot::Figure &figure);

/* Adds a panel for each time series. */
void add_series_panels(const std::vector<Curve> &curves, const CurveOptions &options,
                       plot::Figure &figure);

}  // namespace ksutil::tools
#endif
