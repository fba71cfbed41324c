/* A key that leads to another row changes the wrong row. */
#include "platform/db/postgresql/internal/pg_keys.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace ksutil::db {
namespace {

void expect_same(const PgKeys &keys, const std::vector<std::int64_t> &model) {
  ASSERT_EQ(keys.count(), static_cast<long>(model.size()));
  EXPECT_EQ(keys.last(), model.empty() ? 0 : model.back());
  for (std::size_t i = 0; i < model.size(); ++i) {
    ASSERT_EQ(keys.key_of(static_cast<long>(i)), model[i]);
    ASSERT_EQ(keys.record_of(model[i]), static_cast<long>(i));
    const bool next = i + 1 < model.size() && model[i + 1] == model[i] + 1;
    ASSERT_EQ(keys.record_of(model[i] + 1), next ? static_cast<long>(i) + 1 : -1);
  }
  EXPECT_EQ(keys.record_of(model.empty() ? 1 : model.front() - 1), -1);
}

TEST(PgKeys, FollowAListThroughRandomChanges) {
  std::mt19937 random(5);
  for (int round = 0; round < 200; ++round) {
    PgKeys keys;
    std::vector<std::int64_t> model;
    std::int64_t key = 0;
    for (int step = 0; step < 8; ++step) {
      for (std::size_t i = random() % 20; i > 0; --i) {
        key += random() % 3 == 0 ? 1 + random() % 5 : 1;
        ASSERT_TRUE(keys.append(key));
        model.push_back(key);
      }
      EXPECT_FALSE(!model.empty() && keys.append(model.back()));
      std::set<std::int64_t> gone;
      for (std::size_t i = random() % 6; i > 0; --i) {
        gone.insert(static_cast<std::int64_t>(random() % 100));
      }
      keys = keys.without({gone.begin(), gone.end()});
      std::erase_if(model, [&](std::int64_t known) { return gone.count(known) > 0; });
      expect_same(keys, model);
    }
  }
}

}  // namespace
}  // namespace ksutil::db
