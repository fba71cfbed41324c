/* info: ksmoment info. */
#include <cmath>

#include "mechanisms/ksmoment.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/rows.h"
#include "tools/ksmoment/commands.h"
#include "tools/ksmoment/mechanisms.h"

namespace ksutil::tools {
namespace {

struct InfoOptions {
  MechanismOptions mechanisms;
  Form form = Form::kText;
};

/* A value that rounds to zero has no sign. */
std::string tenths(double value) {
  return format_text("%.1f", std::fabs(value) < 0.05 ? 0.0 : value);
}

std::vector<Column> columns() {
  std::vector<Column> all{{"mechanism"}};
  const auto number = [&all](const char *name, const char *unit) {
    all.push_back({name, true, true, unit});
  };
  number("moment", "Nm");
  number("mw", "");
  for (const char *name : {"strike1", "dip1", "rake1", "strike2", "dip2", "rake2"}) {
    number(name, "deg");
  }
  for (const char *axis : {"t", "n", "p"}) {
    number((std::string(axis) + "val").c_str(), "Nm");
    number((std::string(axis) + "plunge").c_str(), "deg");
    number((std::string(axis) + "azim").c_str(), "deg");
  }
  for (const char *name : {"pctdc", "pctclvd", "pctiso"}) number(name, "%");
  return all;
}

bool add_row(const Mechanism &mechanism, Rows &rows) {
  const double *const m = mechanism.tensor.data();
  KSMomentAxis axes[3];
  KSMomentParts parts;
  if (ksmoment_axes(m, axes) != 0 || ksmoment_parts(m, &parts) != 0) return false;
  const double moment = ksmoment_moment(m);
  std::vector<std::string> cells{
      mechanism.label, format_text("%.3e", moment),
      moment > 0.0 ? format_text("%.2f", ksmoment_magnitude(moment)) : ""};
  KSMomentPlane planes[2];
  const ElogScope unheard;  // a source without a double couple has no planes
  const bool couple = ksmoment_planes(m, planes) == 0;
  for (const KSMomentPlane &plane : planes) {
    for (const double value : {plane.strike, plane.dip, plane.rake}) {
      cells.push_back(couple ? tenths(value) : "");
    }
  }
  for (const KSMomentAxis &axis : axes) {
    cells.insert(cells.end(), {format_text("%.3e", axis.value), tenths(axis.plunge),
                               tenths(axis.azimuth)});
  }
  cells.insert(cells.end(), {tenths(parts.dc), tenths(parts.clvd), tenths(parts.iso)});
  rows.add(std::move(cells));
  return true;
}

int info(const InfoOptions &options) {
  std::vector<Mechanism> mechanisms;
  const int code = collect_mechanisms(options.mechanisms, mechanisms);
  if (code != kOk) return code;
  Rows rows(columns(), options.form);
  for (const Mechanism &mechanism : mechanisms) {
    if (!add_row(mechanism, rows)) return kFailure;
  }
  rows.print();
  return kOk;
}

void describe_info(CLI::App &command, InfoOptions &options) {
  add_mechanism_options(command, options.mechanisms);
  add_form_options(command, options.form);
}

}  // namespace

Command info_command() {
  return make_command<InfoOptions>(
      "info", "Prints moment, magnitude, nodal planes, axes and parts of mechanisms",
      {"ksmoment info --plane 133,72,66 --mw 5.3",
       "ksmoment info --json --tensor "
       "0.838e17,-0.005e17,-0.833e17,1.05e17,-0.369e17,0.044e17"},
      describe_info, info);
}

}  // namespace ksutil::tools
