/* Lists and maps carry everything the library hands about; an item lost, doubled or moved
 * here surfaces as a wrong row, a leak or a crash far away. */
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "platform/stock/arr.h"
#include "platform/stock/tbl.h"

namespace {

struct FreeTbl {
  void operator()(Tbl *tbl) const { freetbl(tbl, nullptr); }
};
using TblPtr = std::unique_ptr<Tbl, FreeTbl>;

struct FreeArr {
  void operator()(Arr *arr) const { freearr(arr, nullptr); }
};
using ArrPtr = std::unique_ptr<Arr, FreeArr>;

void *as_item(long value) { return reinterpret_cast<void *>(value); }

TEST(Tbl, PointerListFollowsAModelThroughRandomOperations) {
  std::mt19937 random(1);
  const TblPtr tbl(newtbl(0));
  std::deque<void *> model;
  for (long step = 1; step < 20000; ++step) {
    const long n = static_cast<long>(model.size());
    const long i = n == 0 ? 0 : static_cast<long>(random() % static_cast<unsigned>(n));
    switch (random() % 6) {
      case 0:
      case 1:
        ASSERT_EQ(pushtbl(tbl.get(), as_item(step)), n);
        model.push_back(as_item(step));
        break;
      case 2: {
        const long at = i + static_cast<long>(random() % 3);
        ASSERT_EQ(settbl(tbl.get(), at, as_item(step)), at);
        if (at >= n) model.resize(static_cast<std::size_t>(at) + 1, nullptr);
        model[static_cast<std::size_t>(at)] = as_item(step);
        break;
      }
      case 3:
        ASSERT_EQ(shifttbl(tbl.get()), n == 0 ? nullptr : model.front());
        if (n > 0) model.pop_front();
        break;
      case 4:
        ASSERT_EQ(poptbl(tbl.get()), n == 0 ? nullptr : model.back());
        if (n > 0) model.pop_back();
        break;
      default:
        ASSERT_EQ(deltbl(tbl.get(), i),
                  n == 0 ? nullptr : model[static_cast<std::size_t>(i)]);
        if (n > 0) model.erase(model.begin() + i);
    }
    ASSERT_EQ(counttbl(tbl.get()), static_cast<long>(model.size()));
  }
  const TblPtr copy(duptbl(tbl.get()));
  ASSERT_EQ(counttbl(copy.get()), static_cast<long>(model.size()));
  for (std::size_t i = 0; i < model.size(); ++i) {
    ASSERT_EQ(gettbl(copy.get(), static_cast<long>(i)), model[i]);
  }
}

TEST(Arr, FollowsAModelThroughRandomOperations) {
  std::mt19937 random(2);
  const ArrPtr arr(newarr(nullptr));
  std::map<std::string, void *> model;
  for (long step = 0; step < 20000; ++step) {
    const std::string key = "k" + std::to_string(random() % 300);
    const auto found = model.find(key);
    void *held = found == model.end() ? nullptr : found->second;
    ASSERT_EQ(getarr(arr.get(), key.c_str()), held);
    ASSERT_EQ(containsarr(arr.get(), key.c_str()), found != model.end());
    if (random() % 2 == 0) {
      void *value = as_item(step % 7);  // null among them
      ASSERT_EQ(setarr(arr.get(), key.c_str(), value), held);
      model[key] = value;
    } else {
      ASSERT_EQ(delarr(arr.get(), key.c_str()), held);
      model.erase(key);
    }
  }
  const TblPtr keys(keysarr(arr.get()));
  ASSERT_EQ(counttbl(keys.get()), static_cast<long>(model.size()));
  ASSERT_EQ(countarr(arr.get()), counttbl(keys.get()));
  long i = 0;
  for (const auto &[key, value] : model) {
    EXPECT_EQ(key, static_cast<char *>(gettbl(keys.get(), i++)));
  }
}

}  // namespace
