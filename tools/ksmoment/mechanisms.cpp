#include "tools/ksmoment/mechanisms.h"

#include <cmath>

#include "mechanisms/ksmoment.h"
#include "platform/db/db.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/cli.h"
#include "tools/common/open_database.h"
#include "tools/common/options.h"
#include "tools/plot/beachball.h"

namespace ksutil::tools {
namespace {

constexpr double kNull = -999.0;

/* The numbers of a list with commas; false unless there are as many as asked for. */
bool parse_numbers(const std::string &text, std::size_t count, double *numbers) {
  const std::vector<std::string> items = split_list(text);
  if (items.size() != count) return false;
  for (std::size_t i = 0; i < count; i++) {
    if (!parse_real(items[i], numbers[i]) || !std::isfinite(numbers[i])) return false;
  }
  return true;
}

bool read_tensor(const std::string &text, Mechanism &mechanism) {
  if (parse_numbers(text, 6, mechanism.tensor.data()) &&
      std::isfinite(ksmoment_moment(mechanism.tensor.data()))) {
    return true;
  }
  complain("--tensor '" + text + "' is not a list of six elements in N m");
  return false;
}

bool read_plane(const std::string &text, double magnitude, Mechanism &mechanism) {
  double numbers[3];
  if (parse_numbers(text, 3, numbers) && numbers[1] >= 0.0 && numbers[1] <= 90.0) {
    const KSMomentPlane plane{numbers[0], numbers[1], numbers[2]};
    const double moment =
        magnitude == kNull ? 1.0 : ksmoment_moment_of_magnitude(magnitude);
    return ksmoment_from_plane(&plane, moment, mechanism.tensor.data()) == 0;
  }
  complain("--plane '" + text + "' is not strike, dip (0 to 90) and rake in degrees");
  return false;
}

/* The tensor of a row, or of its first plane; false when it has neither. */
bool read_row(Dbptr row, Mechanism &mechanism) {
  const ElogScope unheard;
  if (dbgetv(row, "mtid", &mechanism.mtid, "evid", &mechanism.evid,
             static_cast<char *>(nullptr)) != 0) {
    return false;
  }
  mechanism.label = "mt " + std::to_string(mechanism.mtid);
  return plot::row_mechanism(row, mechanism.tensor.data());
}

int collect_rows(const MechanismOptions &options, std::vector<Mechanism> &found) {
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  Dbptr view = database.table("mt");
  if (view.table < 0) return kFailure;
  std::string where = options.where;
  if (options.evid >= 0) {
    where = (where.empty() ? "" : "(" + where + ") && ") +
            ("evid == " + std::to_string(options.evid));
  }
  if (!where.empty()) view = dbsubset(view, where.c_str());
  long count = 0, left_out = 0;
  if (view.table < 0 || dbquery(view, dbq_record_count, &count) != 0) return kFailure;
  for (view.record = 0; view.record < count; view.record++) {
    if (static_cast<long>(found.size()) >= options.limit) break;
    Mechanism mechanism;
    if (read_row(view, mechanism)) {
      found.push_back(std::move(mechanism));
    } else {
      left_out++;
    }
  }
  if (left_out > 0) {
    complain(std::to_string(left_out) + " rows of mt have neither tensor nor plane");
  }
  return kOk;
}

}  // namespace

void add_mechanism_options(CLI::App &command, MechanismOptions &options) {
  command.add_option("database", options.database, "Database with a table mt");
  command
      .add_option("--where", options.where,
                  "Only the rows of mt for which this expression is true")
      ->type_name("EXPRESSION");
  command.add_option("--evid", options.evid, "Only the rows of this event")
      ->check(whole_number(0));
  add_limit(command, options.limit, "rows");
  command
      .add_option("--tensor", options.tensors,
                  "mrr,mtt,mpp,mrt,mrp,mtp in N m (r up, t south, p east)")
      ->type_size(1)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command
      .add_option("--plane", options.planes,
                  "Double couple: strike,dip,rake in degrees")
      ->type_size(1)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command.add_option("--mw", options.magnitude, "Moment magnitude of --plane")
      ->check(number_between(-10.0, 12.0));
}

int collect_mechanisms(const MechanismOptions &options, std::vector<Mechanism> &found) {
  if (options.database.empty() && options.tensors.empty() && options.planes.empty()) {
    complain("a database, --tensor or --plane is needed");
    return kUsage;
  }
  if (!options.database.empty()) {
    if (const int code = collect_rows(options, found); code != kOk) return code;
  }
  for (const std::string &text : options.tensors) {
    Mechanism mechanism;
    mechanism.label = text;
    if (!read_tensor(text, mechanism)) return kUsage;
    found.push_back(mechanism);
  }
  for (const std::string &text : options.planes) {
    Mechanism mechanism;
    mechanism.label = text;
    if (!read_plane(text, options.magnitude, mechanism)) return kUsage;
    found.push_back(mechanism);
  }
  return kOk;
}

}  // namespace ksutil::tools
