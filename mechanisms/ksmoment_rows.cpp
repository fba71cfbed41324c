#include <algorithm>
#include <array>
#include <cmath>

#include "mechanisms/ksmoment.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

using ksutil::fail;

namespace {

/* Anything at or below it is the null of an element. */
constexpr double kNullElement = -999.0;

char *null_text() { return nullptr; }

}  // namespace

int ksmoment_from_row(Dbptr row, double *m) {
  constexpr const char *kWho = "ksmoment_from_row";
  if (m == nullptr) return fail(kWho, "No place for the tensor");
  std::array<double, 6> found{};
  if (dbgetv(row, "mrr", &found[0], "mtt", &found[1], "mpp", &found[2], "mrt",
             &found[3], "mrp", &found[4], "mtp", &found[5], null_text()) != 0) {
    return fail(kWho, "Cannot read the row");
  }
  for (const double element : found) {
    if (element == kNullElement || !std::isfinite(element)) {
      return fail(kWho, "The row has no tensor");
    }
  }
  std::copy(found.begin(), found.end(), m);
  return 0;
}

int ksmoment_to_row(const double *m, Dbptr row) {
  constexpr const char *kWho = "ksmoment_to_row";
  std::array<KSMomentAxis, 3> axes;
  KSMomentParts parts;
  if (ksmoment_axes(m, axes.data()) != 0 || ksmoment_parts(m, &parts) != 0) {
    return fail(kWho, "Not a moment tensor");
  }
  std::array<KSMomentPlane, 2> planes;
  {
    /* An explosion has none: the fields become null. */
    const ksutil::ElogScope unheard;
    if (ksmoment_planes(m, planes.data()) != 0) {
      planes.fill({kNullElement, kNullElement, kNullElement});
    }
  }
  const double moment = ksmoment_moment(m);
  const double mw = moment > 0.0 ? ksmoment_magnitude(moment) : kNullElement;
  const auto &[t, n, p] = axes;
  if (dbputv(row, "mrr", m[0], "mtt", m[1], "mpp", m[2], "mrt", m[3], "mrp", m[4],
             "mtp", m[5], "moment", moment, "mw", mw, "strike1", planes[0].strike,
             "dip1", planes[0].dip, "rake1", planes[0].rake, "strike2",
             planes[1].strike, "dip2", planes[1].dip, "rake2", planes[1].rake, "tval",
             t.value, "tplunge", t.plunge, "tazim", t.azimuth, "nval", n.value,
             "nplunge", n.plunge, "nazim", n.azimuth, "pval", p.value, "pplunge",
             p.plunge, "pazim", p.azimuth, "pctdc", parts.dc, "pctclvd", parts.clvd,
             "pctiso", parts.iso, null_text()) != 0) {
    return fail(kWho, "Cannot write the row");
  }
  return 0;
}
