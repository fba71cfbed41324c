/* A small program against the installed headers: an event database made, served and read
 * through the public interface alone. */
#include <ksutil.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

bool make_database(const std::string &name) {
  Dbptr db;
  if (dbcreate(name.c_str(), "css3.0") != 0) return false;
  if (dbopen(name.c_str(), "r+", &db) != 0) return false;
  const bool added = dbaddv(dblookup(db, "", "event", "", ""), "evid", 7L, "prefor",
                            70L, static_cast<char *>(nullptr)) == 0 &&
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
    if (client.getEvent(7L, event) == 0 && event.magtype == "ml") result = 0;
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
