#include "tools/ksevents/event_tree.h"

#include <cstdio>
#include <string>

namespace ksutil::tools {
namespace {

constexpr const char *kStep = "    ";

/* Prints a list of records under a heading of its own depth, when there are any. */
template <class Record>
void print_list(EVServer &server, Table<Record> &records, const std::string &prefix) {
  if (records.size() > 0) server.print(&records, prefix);
}

}  // namespace

void print_tree(EVServer &server, EVEvent &event) {
  server.print(&event, "");
  for (long i = 0; i < event.origins.size(); i++) {
    EVOrigin &origin = *event.origins.ptr(i);
    const std::string prefix = kStep, inner = prefix + kStep;
    std::printf("%sOrigin %ld:\n", kStep, i);
    server.print(&origin, inner);
    for (long m = 0; m < origin.magnitudes.size(); m++) {
      EVMagnitude &magnitude = *origin.magnitudes.ptr(m);
      std::printf("%sMagnitude %ld:\n", inner.c_str(), m);
      server.print(&magnitude, inner + kStep);
      print_list(server, magnitude.stamags, inner + kStep);
    }
    print_list(server, origin.moments, inner);
    print_list(server, origin.associations, inner);
    print_list(server, origin.detections, inner);
  }
}

}  // namespace ksutil::tools
