#include "formats/exchange/import/row_index.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace ksutil::exchange {
namespace {

/* An entry that is lost is an event that comes in twice.  Ids that ascend with the rows are
 * kept in another way than all others, and an index may change over at any entry. */
TEST(RowIndex, FindsWhatAMultimapFinds) {
  std::mt19937_64 random(7);
  for (const char *order : {"dense", "gaps", "repeated", "turns", "far", "hashes"}) {
    const std::string_view kind(order);
    RowIndex index;
    std::multimap<std::uint64_t, std::int64_t> model;
    std::uint64_t key = 1;
    std::int64_t row = 0;
    for (int i = 0; i < 1000; ++i) {
      if (kind == "dense") key++;
      if (kind == "gaps")
        key += random() % 900, row += static_cast<long>(random() % 900);
      if (kind == "repeated") key += i % 200 == 0 ? 1 : 0;
      if (kind == "turns") key = i < 500 ? key + 1 : key - 1;
      if (kind == "far") key += i % 100 == 99 ? 70000 : 1, row += i == 700 ? 70000 : 0;
      if (kind == "hashes") key = random();
      index.add(key, row);
      model.emplace(key, row++);
    }
    index.settle();
    std::set<std::uint64_t> keys{0, key + 1, ~std::uint64_t{0}};
    for (const auto &[known, at] : model) keys.insert({known, known - 1, known + 1});
    for (const std::uint64_t wanted : keys) {
      std::vector<std::int64_t> found, expected;
      for (const RowIndex::Item item : index.find(wanted)) found.push_back(item.row);
      const auto range = model.equal_range(wanted);
      for (auto at = range.first; at != range.second; ++at)
        expected.push_back(at->second);
      ASSERT_EQ(found, expected) << order << ' ' << wanted;
      EXPECT_EQ(index.find(wanted).size(), expected.size());
      EXPECT_EQ(index.first(static_cast<std::int64_t>(wanted)),
                expected.empty() ? -1 : expected.front());
    }
  }
}

}  // namespace
}  // namespace ksutil::exchange
