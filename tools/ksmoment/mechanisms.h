/* mechanisms: collects the tensors that a command line names. */
#ifndef KSUTIL_TOOLS_KSMOMENT_MECHANISMS_H
#define KSUTIL_TOOLS_KSMOMENT_MECHANISMS_H

#include <CLI/CLI.hpp>
#include <array>
#include <climits>
#include <string>
#include <vector>

namespace ksutil::tools {

struct MechanismOptions {
  std::string database, where;
  std::vector<std::string> tensors, planes;
  double magnitude = -999.0;  // of --plane
  long evid = -1;
  long limit = LONG_MAX;
};

/* Adds the operand DATABASE and --where, --evid, --limit, --tensor, --plane and --mw. */
void add_mechanism_options(CLI::App &command, MechanismOptions &options);

struct Mechanism {
  std::array<double, 6> tensor{};  // N m
  long mtid = -1, evid = -1;       // of a row
  std::string label;               // "mt 7", or the option as it was given
};

/* The rows of mt in their order, then the tensors and the planes.  An exit code: kUsage
 * after a complaint when none is named, kFailure when one cannot be read.  Rows of mt
 * without elements are given as their first plane with the row's moment, and are left out
 * and told when they have no plane either. */
int collect_mechanisms(const MechanismOptions &options, std::vector<Mechanism> &found);

}  // namespace ksutil::tools
#endif
