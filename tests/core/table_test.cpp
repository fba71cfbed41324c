/* Every record of the event server lives in tables; a slip by one shows as one event
 * carrying another's magnitudes. */
#include "core/Table.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

std::vector<int> items_of(const Table<int> &table) {
  return std::vector<int>(table.begin(), table.end());
}

TEST(Table, BehavesLikeAVectorWithADefaultOutsideIt) {
  constexpr int kDefault = -7;
  std::mt19937 random(1);
  const auto pick = [&](int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
  };
  Table<int> table(kDefault);
  std::vector<int> model;
  for (int step = 0; step < 20000; ++step) {
    const long size = static_cast<long>(model.size());
    const long i = pick(-3, static_cast<int>(size) + 3);
    const bool inside = i >= 0 && i < size;
    const int expected = inside ? model[static_cast<std::size_t>(i)] : kDefault;
    ASSERT_EQ(table.get(i), expected);
    ASSERT_EQ(table.ptr(i) != nullptr, inside);
    switch (pick(0, 5)) {
      case 0:
        model.push_back(step);
        ASSERT_EQ(table.push(step), size);
        break;
      case 1:
        if (i < 0) {
          model.push_back(step);
        } else {
          if (i >= size) model.resize(static_cast<std::size_t>(i) + 1, kDefault);
          model[static_cast<std::size_t>(i)] = step;
        }
        ASSERT_EQ(table.set(i, step), i < 0 ? size : i);
        break;
      case 2:
        ASSERT_EQ(table.shift(), model.empty() ? kDefault : model.front());
        if (!model.empty()) model.erase(model.begin());
        break;
      default:
        ASSERT_EQ(table.del(i), expected);
        if (inside) model.erase(model.begin() + i);
    }
    ASSERT_EQ(items_of(table), model);
  }
}

/* Memory is short for the copies that it counts down. */
struct Scarce {
  explicit Scarce(int n = 0) : number(n) {}
  Scarce(const Scarce &other) : number(other.number) {
    if (copies_left-- == 0) throw std::bad_alloc();
  }
  Scarce(Scarce &&) = default;
  Scarce &operator=(const Scarce &) = default;
  Scarce &operator=(Scarce &&) = default;
  int number;
  static inline int copies_left = -1;
};

/* An index from outside may be anything: it must neither fill the memory item by item nor
 * leave a table that is half grown. */
TEST(Table, StaysAsItWasWhenItCannotGrowToAnIndex) {
  Table<Scarce> table(Scarce(-1));
  table.push(Scarce(5));
  Scarce::copies_left = 10;
  EXPECT_THROW(table.set(100, Scarce(6)), std::bad_alloc);
  Scarce::copies_left = -1;
  EXPECT_THROW(table.set(LONG_MAX, Scarce(6)), std::bad_alloc);
  EXPECT_EQ(table.size(), 1);
  EXPECT_EQ(table.set(100, Scarce(6)), 100);
  EXPECT_EQ(table.get(0).number, 5);
  EXPECT_EQ(table.get(99).number, -1);
  EXPECT_EQ(table.get(100).number, 6);
}

TEST(Table, AssignmentTakesTheItemsAndKeepsItsOwnDefault) {
  Table<int> source(-1), copied(-2), moved(-3);
  source.push(5);
  copied.push(9);
  copied = source;
  EXPECT_EQ(items_of(copied), std::vector<int>({5}));
  EXPECT_EQ(copied.get(1), -2);
  EXPECT_EQ(Table<int>(source).get(1), -1);
  moved = std::move(source);
  EXPECT_EQ(items_of(moved), std::vector<int>({5}));
  EXPECT_EQ(moved.get(1), -3);
}

/* Events are copied, moved and freed with the tables below them by the million. */
TEST(Table, OwnsItsItemsHoweverTheyMove) {
  std::mt19937 random(2);
  std::vector<Table<std::string>> tables(4);
  tables[1] = Table<std::string>(std::string(30, 'd'));
  tables.emplace_back(std::string(30, 'e'));
  std::vector<std::vector<std::string>> models(tables.size());
  for (int step = 0; step < 5000; ++step) {
    const std::size_t i = random() % tables.size(), k = random() % tables.size();
    const std::string text(random() % 40, static_cast<char>('a' + random() % 26));
    switch (random() % 8) {
      case 0:
        tables[i].set(tables[i].size() + 2, text);
        models[i].resize(models[i].size() + 2, i == 4 ? std::string(30, 'e') : "");
        models[i].push_back(text);
        break;
      case 1:
        if (i == k) break;
        tables[i] = std::move(tables[k]);
        models[i] = std::exchange(models[k], {});
        break;
      case 2:
        if (i == k) break;
        tables[i] = tables[k];
        models[i] = models[k];
        break;
      case 3:
        tables[i].shrink_to_fit();
        break;
      case 4:
        tables[i].reserve(static_cast<long>(random() % 64));
        break;
      case 5:
        tables[i].shift();
        if (!models[i].empty()) models[i].erase(models[i].begin());
        break;
      case 6:
        if (random() % 8 == 0) {
          tables[i].clear();
          models[i].clear();
        }
        break;
      default:
        /* An item of the table itself. */
        tables[i].push(tables[i].size() > 0 ? *tables[i].ptr(0) : text);
        models[i].push_back(models[i].empty() ? text : models[i][0]);
    }
    const Table<std::string> copy(tables[i]);
    ASSERT_EQ(std::vector<std::string>(copy.begin(), copy.end()), models[i]);
    ASSERT_EQ(copy.get(-1), i == 4 ? std::string(30, 'e') : "");
  }
}

TEST(Table, TakesThePlaceOfAPointer) {
  EXPECT_EQ(sizeof(Table<std::string>), sizeof(void *));
  struct alignas(64) Wide {
    char bytes[64];
  };
  Table<Wide> wide;
  wide.reserve(3);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide.begin()) % 64, 0U);
}

TEST(Table, AssignedToItselfEndsUpEmpty) {
  Table<std::string> table;
  table.push("a");
  const Table<std::string> &same = table;
  table = same;
  EXPECT_EQ(table.size(), 0);
}

TEST(Table, ValueInitialisesItsDefault) {
  struct Record {
    int number;
    void *pointer;
  };
  const Table<Record> table;
  EXPECT_EQ(table.get(-1).number, 0);
  EXPECT_EQ(table.get(0).pointer, nullptr);
}

}  // namespace
