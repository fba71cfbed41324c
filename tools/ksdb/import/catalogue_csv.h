/* Reads catalogues in the comma-separated form of the ComCat event feed. */
#ifndef KSUTIL_TOOLS_KSDB_IMPORT_CATALOGUE_CSV_H
#define KSUTIL_TOOLS_KSDB_IMPORT_CATALOGUE_CSV_H

#include <string>
#include <vector>

namespace ksutil::tools {

/* One line of a catalogue.  What the line does not give keeps the null of its database
 * field: -999.0 or -1 for numbers, "" for texts. */
struct CatalogueEvent {
  std::string id;  // text id, unique in the catalogue
  double time = 0.0;
  double lat = 0.0, lon = 0.0;  // degrees
  double depth = -999.0;        // km
  double magnitude = -999.0;
  std::string magtype;
  std::string net, type, location_source, magnitude_source;
  double updated = 0.0;  // epoch seconds; 0: not given
  long stations = -1, magnitude_stations = -1;
  double rms = -1.0;               // s
  double horizontal_error = -1.0;  // km
  double depth_error = -1.0;       // km
  double magnitude_error = -1.0;
  long line = 0;  // in the file
};

/* A line that cannot be used, and why. */
struct RefusedLine {
  long line = 0;
  std::string reason;
};

/* Reads a whole file: events in the order of their origin times, equal times in the order
 * of the lines.  The columns time, latitude, longitude and id must be there, in any order
 * among others.  False, with `problem` told, when it is no such file. */
bool read_catalogue_csv(const std::string &path, std::vector<CatalogueEvent> &events,
                        std::vector<RefusedLine> &refused, std::string &problem);

}  // namespace ksutil::tools
#endif
