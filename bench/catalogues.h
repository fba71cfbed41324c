/* Catalogues: synthetic catalogues of several sizes in a scratch folder. */
#ifndef KSUTIL_BENCH_CATALOGUES_H
#define KSUTIL_BENCH_CATALOGUES_H

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "bench/synthetic_catalogue.h"

namespace ksutil::bench {

/* Catalogues of one origin and one magnitude an event, made when they are first asked for
 * and removed at the end of the program. */
class Catalogues {
 public:
  static std::string path(long events, int arrivals = 0) {
    static Catalogues catalogues;
    const std::string path = catalogues.folder_ + "/c" + std::to_string(events) + "a" +
                             std::to_string(arrivals);
    if (!std::filesystem::exists(path + ".event")) {
      CatalogueSize size;
      size.events = events;
      size.origins = 1;
      size.netmags = 1;
      size.arrivals = arrivals;
      write_catalogue(path, size);
    }
    return path;
  }
  ~Catalogues() { std::filesystem::remove_all(folder_); }
  Catalogues(const Catalogues &) = delete;
  Catalogues &operator=(const Catalogues &) = delete;

 private:
  Catalogues() {
    char folder[] = "/tmp/ksutil-bench-XXXXXX";
    folder_ = mkdtemp(folder);
  }
  std::string folder_;
};

}  // namespace ksutil::bench
#endif
