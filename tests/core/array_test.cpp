/* Settings and expanded events are found by key; a look-up that inserted, or a value lost
 * on removal, would change the program's state by asking. */
#include "core/Array.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

TEST(Array, BehavesLikeAMapWithADefaultForMissingKeys) {
  std::mt19937 random(2);
  Array<long, std::string> array;
  std::map<long, std::string> model;
  for (int step = 0; step < 20000; ++step) {
    const long key = static_cast<long>(random() % 50);
    const auto known = model.find(key);
    const std::string expected = known == model.end() ? "" : known->second;
    ASSERT_EQ(array.get(key), expected);
    ASSERT_EQ(array.contains(key), known != model.end());
    if (random() % 2 == 0) {
      array.set(key, std::to_string(step));
      model[key] = std::to_string(step);
    } else {
      ASSERT_EQ(array.del(key), expected);
      model.erase(key);
    }
    ASSERT_EQ(array.size(), static_cast<long>(model.size()));
  }
}

TEST(Array, ListsKeysAndValuesInOneOrder) {
  Array<std::string, int> array;
  for (int i = 0; i < 100; ++i) array.set("key" + std::to_string(i), i);
  const Table<std::string> keys = array.keys();
  const Table<int> vals = array.vals();
  ASSERT_EQ(keys.size(), 100);
  ASSERT_EQ(vals.size(), 100);
  struct Walk {
    const Table<std::string> &keys;
    long at;
  } walk{keys, 0};
  array.apply(
      [](const std::string &key, const int &value, void *ctx) {
        Walk &w = *static_cast<Walk *>(ctx);
        EXPECT_EQ(key, w.keys.get(w.at++));
        EXPECT_EQ(key, "key" + std::to_string(value));
      },
      &walk);
  EXPECT_EQ(walk.at, 100);
  for (long i = 0; i < 100; ++i) EXPECT_EQ(array.get(keys.get(i)), vals.get(i));
}

TEST(Array, CopiesAreIndependentAndFailedLookUpsInsertNothing) {
  Array<std::string, int *> array;
  EXPECT_EQ(array.get("absent"), nullptr);
  EXPECT_EQ(array.find("absent"), nullptr);
  EXPECT_FALSE(array.contains("absent"));
  int value = 0;
  array.set("a", &value);
  Array<std::string, int *> copy = array;
  copy.del("a");
  EXPECT_TRUE(array.contains("a"));
  copy = array;
  array.clear();
  EXPECT_EQ(copy.get("a"), &value);
}

}  // namespace
