/* scenarios: the commands that are run under failing calls. */
#ifndef KSUTIL_TESTS_FAULTS_SCENARIOS_H
#define KSUTIL_TESTS_FAULTS_SCENARIOS_H

#include <string>
#include <vector>

#include "tests/faults/faulted_run.h"

namespace faults {

/* What a run with exit code 1 leaves. */
enum class Promise {
  kEachFile,  // each file as it was, or as a run without faults leaves it
  kOneStep,   // all files but `lastid` as they were, or all as without faults
  kPartial,   // a result that lacks what could not be read, and says so
  kHistory,   // a history file that shows what it did, or what it does without faults
  kPicture  // as kEachFile; drawing takes long, and does without the settings of fonts
};

struct Scenario {
  std::string name;
  std::vector<std::string> files;  // of the sources, that the command finds
  std::vector<Arguments> before;   // what is run first, without faults
  Arguments command;
  Promise promise = Promise::kEachFile;
};

const std::vector<Scenario> &scenarios();

/* Copies the files of a scenario into the folder and makes what they lack. */
void prepare(const Scenario &scenario, const Runner &runner);

}  // namespace faults

#endif
