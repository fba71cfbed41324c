/* catalogue: the preferred solutions of the events that a query takes. */
#ifndef KSUTIL_TOOLS_KSEVENTS_PLOT_CATALOGUE_H
#define KSUTIL_TOOLS_KSEVENTS_PLOT_CATALOGUE_H

#include <string>
#include <vector>

#include "tools/common/unreadable.h"

namespace ksutil::tools {

/* Nulls are NaN.  Every event has a time and a place. */
struct CatalogueEvent {
  long evid = -1, orid = -1;
  double time = 0.0;            // epoch seconds
  double lat = 0.0, lon = 0.0;  // degrees
  double depth = 0.0;           // km
  double magnitude = 0.0;
};

/* The events in the order of their times.  An exit code: kUsage for a query that is not a
 * condition, kFailure when the database cannot be read, both with messages. */
int read_catalogue(const std::string &database, const std::string &where,
                   std::vector<CatalogueEvent> &events, Unreadable &unreadable);

}  // namespace ksutil::tools
#endif
