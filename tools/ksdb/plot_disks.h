/* plot_disks: the mechanisms of a view in place of its points. */
#ifndef KSUTIL_TOOLS_KSDB_PLOT_DISKS_H
#define KSUTIL_TOOLS_KSDB_PLOT_DISKS_H

#include "platform/db/db.h"
#include "tools/ksdb/plot_figure.h"

namespace ksutil::tools {

inline constexpr const char *kBeachball =
    "beachball";  // in place of --symbol's expression

/* The diameter of a mechanism of a size, 1 to --max-size. */
double disk_size(double size);

/* Replaces the points of a panel, one for each record of the view, by lower focal hemispheres
 * of their colours; `sizes` are those of the points, empty for one size.  Large ones come
 * first.  `left_out` counts the records without a mechanism.  False, with a message, when
 * there is none or there are too many for a picture. */
bool replace_by_disks(Dbptr view, const std::vector<double> &sizes, double opacity,
                      plot::Panel &panel, long &left_out);

}  // namespace ksutil::tools
#endif
