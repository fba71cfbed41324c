/* compare: ksmoment compare. */
#include "mechanisms/ksmoment.h"
#include "platform/stock/text.h"
#include "tools/common/rows.h"
#include "tools/ksmoment/commands.h"
#include "tools/ksmoment/mechanisms.h"

namespace ksutil::tools {
namespace {

struct CompareOptions {
  MechanismOptions mechanisms;
  Form form = Form::kText;
};

int compare(const CompareOptions &options) {
  std::vector<Mechanism> mechanisms;
  const int code = collect_mechanisms(options.mechanisms, mechanisms);
  if (code != kOk) return code;
  if (mechanisms.size() < 2) {
    complain("two mechanisms or more are needed");
    return kUsage;
  }
  Rows rows({{"mechanism"},
             {"with"},
             {"angle", true, true, "deg"},
             {"moment_ratio", true, true}},
            options.form);
  const Mechanism &first = mechanisms.front();
  const double moment = ksmoment_moment(first.tensor.data());
  for (std::size_t i = 1; i < mechanisms.size(); i++) {
    const double *const tensor = mechanisms[i].tensor.data();
    rows.add(
        {first.label, mechanisms[i].label,
         format_text("%.1f", ksmoment_rotation(first.tensor.data(), tensor)),
         moment > 0.0 ? format_text("%.3f", ksmoment_moment(tensor) / moment) : ""});
  }
  rows.print();
  return kOk;
}

void describe_compare(CLI::App &command, CompareOptions &options) {
  add_mechanism_options(command, options.mechanisms);
  add_form_options(command, options.form);
}

}  // namespace

Command compare_command() {
  return make_command<CompareOptions>(
      "compare",
      "Prints the least angle by which the first mechanism must be turned into each of "
      "the "
      "others",
      {"ksmoment compare --plane 133,72,66 --plane 140,70,70"}, describe_compare,
      compare);
}

}  // namespace ksutil::tools
