/* UnplacedCounts: counts what inputs have and no record or table has a place for. */
#ifndef KSUTIL_FORMATS_EXCHANGE_UNPLACED_H
#define KSUTIL_FORMATS_EXCHANGE_UNPLACED_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ksutil::exchange {

/* Something without a place, with how often it was seen. */
struct Unplaced {
  std::string name;
  std::int64_t count = 1;
};

class UnplacedCounts {
 public:
  /* Names beyond this many are counted together. */
  static constexpr std::size_t kMostNames = 200;

  void add(std::string_view name, std::int64_t count = 1) {
    const auto known =
        std::find_if(list_.begin(), list_.end(),
                     [&](const Unplaced &entry) { return entry.name == name; });
    if (known != list_.end()) {
      known->count += count;
    } else if (list_.size() < kMostNames || name == kOthers) {
      list_.push_back({std::string(name), count});
    } else {
      add(kOthers, count);
    }
  }
  void add(const UnplacedCounts &others) {
    for (const Unplaced &entry : others.list_) add(entry.name, entry.count);
  }
  void clear() { list_.clear(); }
  bool empty() const { return list_.empty(); }
  /* In the order of first sight. */
  const std::vector<Unplaced> &list() const { return list_; }

 private:
  static constexpr std::string_view kOthers = "other values";
  std::vector<Unplaced> list_{};
};

}  // namespace ksutil::exchange
#endif
