/* Refusals: complains about lines of an input that are refused, and after kMost only counts
 * them. */
#ifndef KSUTIL_TOOLS_KSDB_REFUSALS_H
#define KSUTIL_TOOLS_KSDB_REFUSALS_H

#include <cstdint>
#include <string>

namespace ksutil::tools {

class Refusals {
 public:
  static constexpr long kMost = 100;

  explicit Refusals(std::string file) : file_(std::move(file)) {}
  /* Complains about a line; a line 0 is not named. */
  void add(std::int64_t line, const std::string &reason);
  void finish() const;
  long count() const { return count_; }

 private:
  const std::string file_;
  long count_ = 0;
};

}  // namespace ksutil::tools
#endif
