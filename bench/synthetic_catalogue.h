/* A made-up catalogue in flat files, for measurements. */
#ifndef KSUTIL_BENCH_SYNTHETIC_CATALOGUE_H
#define KSUTIL_BENCH_SYNTHETIC_CATALOGUE_H

#include <string>

namespace ksutil::bench {

struct CatalogueSize {
  long events = 100000;
  int origins = 2;    // of each event, the later one loaded some events later
  int netmags = 3;    // of each origin, beside its origerr row
  int mt_every = 10;  // one event in so many has a moment tensor
  int arrivals = 0;   // of each event's first origin: rows of assoc and arrival
};

/* Writes path and path.{event,origin,origerr,netmag,mt}, and with arrivals also
 * path.{assoc,arrival}, in the layout of css3.0.  The same
 * size gives the same bytes.  Throws std::runtime_error. */
void write_catalogue(const std::string &path, const CatalogueSize &size);

/* Bytes of all table files of a catalogue. */
long catalogue_bytes(const std::string &path);

}  // namespace ksutil::bench
#endif
