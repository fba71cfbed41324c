/* library_bodies: pieces of work of a program that uses the library. */
#ifndef KSUTIL_TESTS_FAULTS_LIBRARY_BODIES_H
#define KSUTIL_TESTS_FAULTS_LIBRARY_BODIES_H

#include <string>
#include <vector>

namespace faults {

struct Body {
  const char *name;
  std::vector<std::string> files;  // of the sources, that the work finds
  /* Does the work in the current folder and tells its result; "" when a call fails. */
  std::string (*work)();
};

const std::vector<Body> &bodies();

}  // namespace faults

#endif
