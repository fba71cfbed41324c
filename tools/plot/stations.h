/* stations: the stations of a database on a map. */
#ifndef KSUTIL_TOOLS_PLOT_STATIONS_H
#define KSUTIL_TOOLS_PLOT_STATIONS_H

#include "platform/db/db.h"
#include "tools/plot/figure.h"

namespace ksutil::plot {

/* Adds, beneath the other points of a map, a triangle for each place of the table site that is
 * valid at an epoch time, once however many rows have it.  False, with a message, when there
 * is none or the table cannot be read. */
bool add_stations(Dbptr site, double time, Panel &panel);

}  // namespace ksutil::plot
#endif
