/* Lists and maps carry everything the library hands about; an item lost, doubled or moved
 * here surfaces as a wrong row, a leak or a crash far away. */
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "platform/stock/arr.h"
#include "platform/stock/hook.h"
#include "platform/stock/memory.h"
#include "platform/stock/owners.h"
#include "platform/stock/shared/tbl_storage.h"
#include "platform/stock/tbl.h"

namespace {

using ksutil::ArrPtr;
using ksutil::TblPtr;

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

TEST(Tbl, InlineListCopiesElementsAndFillsGapsWithZeros) {
  struct Pair {
    int a, b, c;
  };
  const TblPtr tbl(inittbl(0, sizeof(Pair)));
  Pair pair = {1, 2, 3};
  EXPECT_EQ(settbl(tbl.get(), 2, &pair), 2);
  pair.a = 99;
  const auto at = [&](long i) { return *static_cast<Pair *>(gettbl(tbl.get(), i)); };
  EXPECT_EQ(at(0).c, 0);
  EXPECT_EQ(at(2).a, 1);
  EXPECT_EQ(pushtbl(tbl.get(), nullptr), -1);
  /* An element of the list itself, while pushing moves the list's block. */
  for (long n = 3; n < 100; ++n) {
    ASSERT_EQ(pushtbl(tbl.get(), gettbl(tbl.get(), n - 1)), n);
    ASSERT_EQ(at(n).b, 2);
  }
  const auto *removed = static_cast<Pair *>(deltbl(tbl.get(), 1));
  EXPECT_EQ(removed->c, 0);
  EXPECT_EQ(pushtbl(tbl.get(), &pair), 99);
  EXPECT_EQ(removed->c, 0);
  EXPECT_EQ(static_cast<Pair *>(poptbl(tbl.get()))->a, 99);
}

/* A backlog of a queue lives in a list for months: taking from its front must cost
 * neither time nor room in proportion to what has passed through. */
TEST(Tbl, ServesAsAQueueInConstantRoom) {
  const TblPtr tbl(newtbl(1000));
  ks_test_fail_alloc(1);
  for (long i = 0; i < 1000; ++i) ASSERT_EQ(pushtbl(tbl.get(), as_item(i)), i);
  long oldest = 0;
  for (; counttbl(tbl.get()) > 500; ++oldest) {
    ASSERT_EQ(shifttbl(tbl.get()), as_item(oldest));
  }
  for (long i = 1000; i < 2000000; ++i, ++oldest) {
    ASSERT_EQ(pushtbl(tbl.get(), as_item(i)), 500);
    ASSERT_EQ(shifttbl(tbl.get()), as_item(oldest));
  }
  ks_test_fail_alloc(0);
}

TEST(Tbl, RefusesWithoutHarm) {
  EXPECT_EQ(inittbl(5, 0), nullptr);
  EXPECT_EQ(newtbl(std::numeric_limits<long>::max()), nullptr);
  const TblPtr tbl(newtbl(2));
  pushtbl(tbl.get(), as_item(1));
  EXPECT_EQ(settbl(tbl.get(), -2, as_item(2)), -1);
  EXPECT_EQ(settbl(tbl.get(), std::numeric_limits<long>::max(), as_item(2)), -1);
  EXPECT_EQ(settbl(tbl.get(), std::numeric_limits<long>::max() / 4, as_item(2)), -1);
  EXPECT_EQ(gettbl(tbl.get(), 1), nullptr);
  EXPECT_EQ(gettbl(tbl.get(), -1), nullptr);
  EXPECT_EQ(deltbl(tbl.get(), 1), nullptr);
  EXPECT_EQ(counttbl(tbl.get()), 1);
  EXPECT_EQ(counttbl(nullptr), 0);
  EXPECT_EQ(shifttbl(nullptr), nullptr);
  EXPECT_EQ(duptbl(nullptr), nullptr);
  freetbl(nullptr, nullptr);
}

/* Runs `attempt` with the first, second, ... allocation failing until none does; returns
 * how many failures there were.  `attempt` tells whether it succeeded. */
template <class Attempt>
int failures(Attempt attempt) {
  for (int n = 1;; ++n) {
    ks_test_fail_alloc(n);
    const bool done = attempt();
    ks_test_fail_alloc(0);
    if (done) return n - 1;
  }
}

TEST(Lists, SurviveEveryFailedAllocation) {
  EXPECT_GE(failures([] { return TblPtr(newtbl(4)) != nullptr; }), 2);
  const TblPtr tbl(newtbl(0));
  for (long i = 0; i < 8; ++i) pushtbl(tbl.get(), as_item(i));
  EXPECT_GE(failures([&] { return TblPtr(duptbl(tbl.get())) != nullptr; }), 2);
  EXPECT_EQ(failures([&] {
              const bool done = pushtbl(tbl.get(), as_item(8)) == 8;
              EXPECT_EQ(counttbl(tbl.get()), done ? 9 : 8);
              return done;
            }),
            1);

  EXPECT_EQ(failures([] { return ArrPtr(newarr(nullptr)) != nullptr; }), 1);
  const ArrPtr arr(newarr(nullptr));
  EXPECT_EQ(failures([&] {
              setarr(arr.get(), "key", as_item(1));
              return containsarr(arr.get(), "key") == 1;
            }),
            2);
  EXPECT_GE(failures([&] { return TblPtr(keysarr(arr.get())) != nullptr; }), 2);
}

/* A storage elsewhere than in memory, whose device can fail. */
class Device final : public ksutil::TblStorage {
 public:
  Device(bool &works, int &open) : works_(works), open_(open) { ++open_; }
  ~Device() override { --open_; }
  std::size_t element_size() const override { return sizeof(int); }
  long count() const override { return static_cast<long>(values_.size()); }
  void *at(long i) override {
    return works_ ? &values_[static_cast<std::size_t>(i)] : nullptr;
  }
  bool store(long i, const void *element) override {
    if (!works_) return false;
    values_.resize(static_cast<std::size_t>(i) + 1);
    std::memcpy(&values_[static_cast<std::size_t>(i)], element, sizeof(int));
    return true;
  }
  bool remove(long i) override {
    if (works_) values_.erase(values_.begin() + i);
    return works_;
  }

 private:
  bool &works_;
  int &open_;
  std::vector<int> values_;
};

TEST(Tbl, WorksOverAnotherStorageAndTellsItsFailures) {
  bool works = true;
  int open = 0;
  Tbl *tbl = ksutil::tbl_with_storage(
      std::unique_ptr<Device>(new (std::nothrow) Device(works, open)));
  for (int value : {5, 6, 7}) pushtbl(tbl, &value);
  EXPECT_EQ(*static_cast<int *>(shifttbl(tbl)), 5);
  const TblPtr copy(duptbl(tbl));
  EXPECT_EQ(counttbl(copy.get()), 2);
  works = false;
  int value = 8;
  EXPECT_EQ(pushtbl(tbl, &value), -1);
  EXPECT_EQ(shifttbl(tbl), nullptr);
  EXPECT_EQ(gettbl(tbl, 0), nullptr);
  EXPECT_EQ(duptbl(tbl), nullptr);
  EXPECT_EQ(counttbl(tbl), 2);
  EXPECT_EQ(open, 1);
  freetbl(tbl, nullptr);
  EXPECT_EQ(open, 0);
  EXPECT_EQ(*static_cast<int *>(gettbl(copy.get(), 1)), 7);
}

int released = 0;
void count_release(void *) { ++released; }

TEST(Lists, ReleaseEveryItemOnceAndSkipNulls) {
  released = 0;
  Tbl *tbl = newtbl(0);
  settbl(tbl, 2, as_item(1));
  pushtbl(tbl, as_item(2));
  freetbl(tbl, count_release);
  EXPECT_EQ(released, 2);

  Arr *arr = newarr(nullptr);
  setarr(arr, "a", nullptr);
  setarr(arr, "b", as_item(1));
  freearr(arr, count_release);
  EXPECT_EQ(released, 3);

  Hook *hook = new_hook(&released, count_release);
  free_hook(&hook);
  EXPECT_EQ(hook, nullptr);
  EXPECT_EQ(released, 4);
  hook = new_hook(ks_strdup("freed with free"), nullptr);
  free_hook(&hook);
  free_hook(&hook);
  free_hook(nullptr);
}

int descending(const char *a, const char *b) { return std::strcmp(b, a); }

TEST(Arr, OrdersByTheGivenFunctionAndCopiesKeys) {
  const ArrPtr arr(newarr(descending));
  std::string key = "a";
  for (; key[0] < 'd'; ++key[0]) setarr(arr.get(), key.c_str(), as_item(key[0]));
  const TblPtr keys(keysarr(arr.get()));
  ASSERT_EQ(counttbl(keys.get()), 3);
  EXPECT_STREQ(static_cast<char *>(gettbl(keys.get(), 0)), "c");
  EXPECT_EQ(getarr(arr.get(), "b"), as_item('b'));
  EXPECT_EQ(setarr(arr.get(), nullptr, nullptr), nullptr);
  EXPECT_EQ(getarr(nullptr, "b"), nullptr);
  EXPECT_EQ(countarr(nullptr), 0);
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

TEST(Owners, MakeListsThatReadBackAndThrowWhenMemoryIsShort) {
  const std::vector<std::string> words = {"one", "", "three"};
  ksutil::TblOfTexts texts = ksutil::from_texts(words);
  std::vector<std::string> read;
  ksutil::for_each<const char>(texts.get(), [&](const char *t) { read.push_back(t); });
  EXPECT_EQ(read, words);
  EXPECT_EQ(ksutil::to_vector<char>(texts.get()).size(), 3u);
  EXPECT_TRUE(ksutil::to_vector<char>(nullptr).empty());

  const std::vector<long> numbers = {0, 7, -1, 1L << 40};
  EXPECT_EQ(ksutil::to_numbers(ksutil::from_numbers(numbers).get()), numbers);

  /* However many allocations a list takes: none of their failures leaks or is missed. */
  for (long n = 1;; ++n) {
    ks_test_fail_alloc(n);
    try {
      texts = ksutil::from_texts(words);
    } catch (const std::bad_alloc &) {
      continue;
    }
    ks_test_fail_alloc(0);
    EXPECT_GE(n, 5);
    break;
  }
}

}  // namespace
