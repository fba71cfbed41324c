/* GeojsonReader: events from a GeoJSON FeatureCollection of points, as event services and
 * feeds give it.
 *
 * The coordinates of a feature are degrees east, degrees north and a depth in km.  Members
 * of its properties are known by the names of ComCat feeds and of the FDSN services of
 * others: time and updated are milliseconds of epoch time or dates.
 * Source: RFC 7946; earthquake.usgs.gov/earthquakes/feed/v1.0/geojson.php. */
#ifndef KSUTIL_FORMATS_EXCHANGE_GEOJSON_GEOJSON_READER_H
#define KSUTIL_FORMATS_EXCHANGE_GEOJSON_GEOJSON_READER_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "formats/exchange/geojson/feature_scanner.h"
#include "formats/exchange/reader.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

class GeojsonReader final : public Reader {
 public:
  explicit GeojsonReader(Input &input) : scanner_(input) {}

  Got next(Event &event) override;
  std::int64_t line() const override { return scanner_.line(); }
  const std::string &problem() const override { return problem_; }
  std::vector<Unplaced> without_place() const override { return unplaced_.list(); }

 private:
  bool read_feature(const std::string &text, Event &event);
  bool read_place(const nlohmann::json &feature, bool has_depth, Origin &origin);
  void read_properties(const nlohmann::json &properties, Event &event);
  void real(const nlohmann::json &value, const char *name, double low, double high,
            double &result);
  void count(const nlohmann::json &value, const char *name, std::int64_t &result);
  void time(const nlohmann::json &value, const char *name, double &result);
  void text(const nlohmann::json &value, const char *name, std::string &result);
  void refuse(const char *name, const nlohmann::json &value);
  void leave(const std::string &name);

  FeatureScanner scanner_;
  std::string feature_, problem_;
  UnplacedCounts unplaced_;
};

}  // namespace ksutil::exchange
#endif
