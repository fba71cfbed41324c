/* FeatureScanner: cuts the features out of a GeoJSON collection, one after the other, in
 * bounded memory. */
#ifndef KSUTIL_FORMATS_EXCHANGE_GEOJSON_FEATURE_SCANNER_H
#define KSUTIL_FORMATS_EXCHANGE_GEOJSON_FEATURE_SCANNER_H

#include <cstdint>
#include <string>

#include "formats/exchange/text/input.h"

namespace ksutil::exchange {

class FeatureScanner {
 public:
  static constexpr std::size_t kMaxFeature = std::size_t{1} << 20;  // bytes
  static constexpr std::size_t kMaxDepth = 64;  // of brackets in one another

  /* The input must outlive the scanner. */
  explicit FeatureScanner(Input &input) : input_(input) {}

  /* kFeature: the text of the next feature, whose brackets match.  kTooLong: one of more
   * than kMaxFeature bytes was passed over.  kFailed: see problem(), with the line. */
  enum class Got { kFeature, kTooLong, kEnd, kFailed };
  Got next(std::string &feature);

  std::int64_t line() const { return feature_line_; }  // at which the feature begins
  const std::string &problem() const { return problem_; }

 private:
  bool refill();
  bool in_list() const { return listed_ && brackets_.size() == 2; }
  bool take_string(char c);
  Got fail(const std::string &what);
  Got open(char c, std::string &feature);
  bool close(char c);

  Input &input_;
  std::string buffer_;
  std::size_t at_ = 0;
  std::int64_t line_ = 1, feature_line_ = 1;
  std::string brackets_;  // that are open
  std::string word_;      // the last string of the outermost object
  bool in_string_ = false, escaped_ = false;
  bool in_feature_ = false, too_long_ = false;
  bool listed_ = false;  // the open list at depth 2 is that of the features
  bool list_seen_ = false, root_seen_ = false;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
