/* consumer: makes, serves and reads an event database through the installed headers alone.
 * It has a core/Array.h of its own, which must not meet the library's. */
#include <ksutil.h>
#include <ksutil/cxx/platform/db/access.h>
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/Array.h"

#if KSUTIL_VERSION_NUMBER < 100
#error "the installed headers are of another version"
#endif

namespace {

bool make_database(const std::string &name) {
  Dbptr db;
  if (dbcreate(name.c_str(), "css3.0") != 0) return false;
  if (dbopen(name.c_str(), "r+", &db) != 0) return false;
  const bool added = dbaddv(dblookup(db, "", "event", "", ""), "evid", consumer::kEvid,
                            "prefor", 70L, static_cast<char *>(nullptr)) == 0 &&
                     dbaddv(dblookup(db, "", "origin", "", ""), "orid", 70L, "evid", 7L,
                            "time", 1274385600.0, "lat", 35.0, "lon", -118.0, "depth",
                            10.0, "ml", 3.1, static_cast<char *>(nullptr)) == 0;
  return dbclose(db) == 0 && added;
}

}  // namespace

int main() {
  char folder[] = "/tmp/consumer-XXXXXX";
  if (mkdtemp(folder) == nullptr) return 1;
  const std::string name = std::string(folder) + "/example";
  int result = 1;
  if (make_database(name)) {
    EVServer server(name, 0, 0, -1);
    EVClient client(&server);
    EVEvent event;
    client.grabEventsLock();
    if (client.getEvent(consumer::kEvid, event) == 0 && event.magtype == "ml")
      result = 0;
    client.releaseEventsLock();
    server.deregisterClient(&client);
  }
  if (result != 0) {
    char *text = ks_elog_string(0);
    std::fprintf(stderr, "consumer failed: %s\n", text == nullptr ? "" : text);
    std::free(text);
  }
  std::filesystem::remove_all(folder);
  return result;
}
