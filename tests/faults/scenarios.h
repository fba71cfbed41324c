/* scenarios: the commands that are run under failing calls. */
#ifndef KSUTIL_TESTS_FAULTS_SCENARIOS_H
#define KSUTIL_TESTS_FAULTS_SCENARIOS_H

#include <string>
#include <vector>

#include "tests/faults/faulted_run.h"

namespace faults {

struct Scenario {
  std::string name;
  std::vector<std::string> files;  // of the sources, that the command finds
  std::vector<Arguments> before;   // what is run first, without faults
  Arguments command;
  bool in_one_step = false;  // a failure leaves all files but `lastid` as they were
  bool slow = false;         // draws a picture: left out of short runs
};

const std::vector<Scenario> &scenarios();

/* Copies the files of a scenario into the folder and makes what they lack. */
void prepare(const Scenario &scenario, const Runner &runner);

}  // namespace faults

#endif
