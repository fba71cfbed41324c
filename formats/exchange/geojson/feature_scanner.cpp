#include "formats/exchange/geojson/feature_scanner.h"

#include <string_view>

namespace ksutil::exchange {
namespace {

constexpr std::size_t kMaxWord = 32;  // of the names that are compared

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

}  // namespace

bool FeatureScanner::refill() {
  buffer_.clear();
  at_ = 0;
  return input_.read(buffer_) && !buffer_.empty();
}

FeatureScanner::Got FeatureScanner::fail(const std::string &what) {
  problem_ = input_.name() + ":" + std::to_string(line_) + ": " + what;
  return Got::kFailed;
}

/* Takes a character of a string; false when it is none. */
bool FeatureScanner::take_string(char c) {
  if (!in_string_) {
    if (c != '"') return false;
    in_string_ = true;
    if (brackets_.size() == 1) word_.clear();
    return true;
  }
  if (escaped_) {
    escaped_ = false;
  } else if (c == '\\') {
    escaped_ = true;
  } else if (c == '"') {
    in_string_ = false;
    return true;
  }
  if (brackets_.size() == 1 && word_.size() < kMaxWord) word_ += c;
  return true;
}

/* kEnd: read on. */
FeatureScanner::Got FeatureScanner::open(char c, std::string &feature) {
  if (brackets_.empty()) {
    if (root_seen_ || c != '{') return fail("this is not one JSON object");
    root_seen_ = true;
  }
  if (brackets_.size() >= kMaxDepth) return fail("too many brackets in one another");
  if (in_list()) {
    if (c != '{') return fail("a feature is not an object");
    in_feature_ = true;
    too_long_ = false;
    feature.clear();
    feature_line_ = line_;
  }
  if (c == '[' && brackets_.size() == 1 && word_ == "features") {
    listed_ = list_seen_ = true;
  }
  brackets_ += c;
  return Got::kEnd;
}

bool FeatureScanner::close(char c) {
  const char opening = c == '}' ? '{' : '[';
  if (brackets_.empty() || brackets_.back() != opening) return false;
  brackets_.pop_back();
  if (brackets_.size() == 1) listed_ = false;
  return true;
}

FeatureScanner::Got FeatureScanner::next(std::string &feature) {
  if (!problem_.empty()) return Got::kFailed;
  for (;;) {
    if (at_ == buffer_.size() && !refill()) break;
    const char c = buffer_[at_++];
    if (c == '\n') line_++;
    const bool of_string = take_string(c);
    if (!of_string && (c == '{' || c == '[')) {
      if (open(c, feature) == Got::kFailed) return Got::kFailed;
    } else if (!of_string && (c == '}' || c == ']')) {
      if (!close(c)) return fail("a bracket closes what is not open");
    } else if (!of_string && brackets_.empty() && !is_blank(c)) {
      return fail("this is not one JSON object");
    } else if (!of_string && in_list() && c != ',' && !is_blank(c)) {
      return fail("a feature is not an object");
    } else if (of_string && (brackets_.empty() || in_list())) {
      return fail("this is not a list of features");
    }
    if (!in_feature_) continue;
    if (feature.size() < kMaxFeature) {
      feature += c;
    } else {
      too_long_ = true;
    }
    if (!of_string && c == '}' && in_list()) {
      in_feature_ = false;
      return too_long_ ? Got::kTooLong : Got::kFeature;
    }
  }
  if (!input_.problem().empty()) return fail(input_.problem());
  if (!brackets_.empty() || in_string_) return fail("the text ends before its end");
  if (!list_seen_) return fail("there is no list of features");
  return Got::kEnd;
}

}  // namespace ksutil::exchange
