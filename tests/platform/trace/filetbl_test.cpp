/* A list in a file is the only record of months of monitoring.  A writer killed at the
 * wrong moment, a full disk or a program pointed at the wrong file must not cost it. */
#include "platform/trace/filetbl.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <random>
#include <thread>

#include "platform/trace/internal/list_format.h"
#include "tests/platform/trace/list_files.h"

namespace ksutil::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;

using Numbers = std::vector<long>;
constexpr int kSize = sizeof(long);
const ListKind kKind{"number", kSize};

struct FreeList {
  void operator()(Tbl *list) const { freetbl(list, nullptr); }
};
using List = std::unique_ptr<Tbl, FreeList>;

Numbers numbers(Tbl *list) {
  Numbers found;
  for (long i = 0; i < counttbl(list); ++i) {
    long number = -1;
    std::memcpy(&number, gettbl(list, i), sizeof number);
    found.push_back(number);
  }
  return found;
}

bool push(const List &list, long number) { return pushtbl(list.get(), &number) >= 0; }

class Filetbl : public ListFolder {
 protected:
  List open(long maxn) const {
    return List(filetbl(file_.c_str(), "number", maxn, kSize));
  }
  Numbers stored(long maxn = 100) const {
    const List list = open(maxn);
    return list == nullptr ? Numbers{-1} : numbers(list.get());
  }
  /* A ring of `maxn` slots that has come round, with the last `count` of its numbers. */
  void make_ring(long maxn, long count) const {
    const List list = open(maxn);
    for (long i = 0; i < 2 * maxn - 1; ++i) {
      if (counttbl(list.get()) == maxn) shifttbl(list.get());
      ASSERT_TRUE(push(list, i));
    }
    while (counttbl(list.get()) > count) shifttbl(list.get());
  }
  /* Bytes that are not such a list stay as they are, and the message says why. */
  void expect_refused(const std::string &bytes, const std::string &cause) const {
    write(file_, bytes);
    EXPECT_EQ(open(3), nullptr) << cause;
    EXPECT_EQ(read(file_), bytes) << cause;
    const std::string text = messages();
    EXPECT_THAT(text, HasSubstr("filetbl: " + file_)) << cause;
    EXPECT_THAT(text, HasSubstr(cause));
  }
};

/* Entries that are too many for a maximum are gone with the first change, not before. */
TEST_F(Filetbl, BehavesLikeAListThatOutlivesItsProcess) {
  std::mt19937 random(1);
  std::deque<long> model, hidden;
  long maxn = 5;
  List list = open(maxn);
  for (long step = 0; step < 3000; ++step) {
    const auto choice = random() % 16;
    const auto count = static_cast<long>(model.size());
    if (choice < 8) {
      EXPECT_EQ(push(list, step), count < maxn);
      if (count == maxn) continue;
      model.push_back(step);
      hidden.clear();
    } else if (choice < 15) {
      const bool first = choice < 14;
      const void *const removed = first ? shifttbl(list.get()) : poptbl(list.get());
      ASSERT_EQ(removed == nullptr, model.empty());
      if (removed == nullptr) continue;
      EXPECT_EQ(std::memcmp(removed, first ? &model.front() : &model.back(), kSize), 0);
      first ? model.pop_front() : model.pop_back();
      hidden.clear();
    } else {
      list.reset();
      maxn = 1 + static_cast<long>(random() % 12);
      list = open(maxn);
      model.insert(model.begin(), hidden.begin(), hidden.end());
      hidden.clear();
      for (; static_cast<long>(model.size()) > maxn; model.pop_front()) {
        hidden.push_back(model.front());
      }
    }
    ASSERT_EQ(numbers(list.get()), Numbers(model.begin(), model.end())) << step;
  }
  EXPECT_EQ(messages(), "");
  EXPECT_LT(std::filesystem::file_size(file_), 1000U) << "the ring grows without end";
}

/* Every byte of every write is once the last that reaches the disk. */
TEST_F(Filetbl, KilledAnywhereKeepsTheListButForTheEntryInHand) {
  struct Case {
    const char *name;
    long before, after;  // maxima
    bool shifts;
    Numbers start, shifted, end;
  };
  const Case cases[] = {
      {"begun", 3, 3, false, {}, {}, {9}},
      {"round the ring", 3, 3, true, {2, 3, 4}, {3, 4}, {3, 4, 9}},
      {"enlarged", 3, 4, false, {2, 3, 4}, {2, 3, 4}, {2, 3, 4, 9}},
      {"fewer", 4, 2, true, {3, 4, 5, 6}, {6}, {6, 9}},
  };
  for (const Case &c : cases) {
    std::filesystem::remove(file_);
    if (!c.start.empty()) make_ring(c.before, c.before);
    const std::string start = read(file_);
    bool done = false;
    for (long bytes = 0; !done; ++bytes) {
      std::filesystem::remove(file_);
      if (!start.empty()) write(file_, start);
      {
        const FullDisk disk(bytes);
        const List list = open(c.after);
        if (list != nullptr && (!c.shifts || shifttbl(list.get()) != nullptr)) {
          push(list, 9);
        }
        done = !FullDisk::full();
      }
      messages();
      ASSERT_THAT(stored(), AnyOf(c.start, c.shifted, c.end))
          << c.name << " cut after " << bytes;
      ASSERT_EQ(messages(), "") << c.name << " cut after " << bytes;
    }
    EXPECT_EQ(stored(), c.end) << c.name;
  }
}

TEST_F(Filetbl, AFullDiskLeavesTheListAsItWasAndUsable) {
  make_ring(3, 2);
  const List list = open(3);
  {
    const FullDisk disk(5);
    EXPECT_FALSE(push(list, 9));
    EXPECT_EQ(shifttbl(list.get()), nullptr);
    EXPECT_EQ(poptbl(list.get()), nullptr);
  }
  const std::string text = messages();
  EXPECT_THAT(text, HasSubstr("filetbl: write(" + file_ + ") error."));
  EXPECT_THAT(text, HasSubstr(std::strerror(ENOSPC)));
  EXPECT_EQ(numbers(list.get()), (Numbers{3, 4}));
  EXPECT_TRUE(push(list, 9));
  EXPECT_EQ(numbers(list.get()), (Numbers{3, 4, 9}));
}

TEST_F(Filetbl, RefusesWhatItCannotDoSafely) {
  make_ring(3, 3);
  const List list = open(3);
  long number = 9;
  EXPECT_EQ(settbl(list.get(), 1, &number), -1);
  EXPECT_EQ(settbl(list.get(), 7, &number), -1);
  EXPECT_EQ(deltbl(list.get(), 1), nullptr);
  EXPECT_FALSE(push(list, 9)) << "the list is full";
  EXPECT_EQ(numbers(list.get()), (Numbers{2, 3, 4}));
  EXPECT_GE(filetbl_fd(list.get()), 0);
  EXPECT_EQ(filetbl_maximum(list.get()), 3);
  const List memory(newtbl(0));
  EXPECT_EQ(filetbl_fd(memory.get()), -1);
  EXPECT_EQ(filetbl_maximum(nullptr), -1);
  EXPECT_EQ(filetbl(file_.c_str(), "", 3, kSize), nullptr);
  EXPECT_EQ(filetbl(file_.c_str(), std::string(32, 'x').c_str(), 3, kSize), nullptr);
  EXPECT_EQ(filetbl(file_.c_str(), "number", 0, kSize), nullptr);
  EXPECT_EQ(filetbl(file_.c_str(), "number", 3, 0), nullptr);
}

TEST_F(Filetbl, IsOneOwnersAtATimeAndReadByAll) {
  make_ring(3, 3);
  List list = open(3);
  errno = 0;
  EXPECT_EQ(open(3), nullptr);
  EXPECT_EQ(errno, EAGAIN);
  const List copy(filetbl_read(file_.c_str(), "number", kSize));
  EXPECT_EQ(numbers(copy.get()), (Numbers{2, 3, 4}));
  list.reset();
  EXPECT_EQ(stored(), (Numbers{2, 3, 4}));
  EXPECT_EQ(filetbl_read((file_ + "none").c_str(), "number", kSize), nullptr);
  EXPECT_FALSE(std::filesystem::exists(file_ + "none"));
}

TEST_F(Filetbl, IsReadWholeWhileItsOwnerGoesOn) {
  make_ring(20, 20);
  std::atomic<bool> done{false};
  std::jthread owner([&] {
    const List list = open(20);
    for (long i = 39; i < 3000; ++i) {
      shifttbl(list.get());
      push(list, i);
    }
    done = true;
  });
  long newest = 0;
  while (!done) {
    const List copy(filetbl_read(file_.c_str(), "number", kSize));
    ASSERT_NE(copy, nullptr);
    const Numbers found = numbers(copy.get());
    ASSERT_GE(found.size(), 19U);
    for (std::size_t i = 1; i < found.size(); ++i) {
      ASSERT_EQ(found[i], found[i - 1] + 1);
    }
    ASSERT_GE(found.back(), newest);
    newest = found.back();
  }
  owner.join();
  EXPECT_EQ(messages(), "");
}

TEST_F(Filetbl, RefusesOtherFilesAndLeavesThemAsTheyAre) {
  make_ring(3, 3);
  const std::string good = read(file_);
  expect_refused("KAA 1700000000.0 1.5\n", "is not a list file");
  expect_refused(std::string(500, '\0'), "is not a list file");
  expect_refused(good.substr(0, 100), "is cut short");
  expect_refused(good.substr(0, good.size() - 1), "is cut short");
  const auto with_kind = [&](const ListKind &kind) {
    const ListHead head = empty_list_head(kind);
    return std::string(head.begin(), head.end());
  };
  expect_refused(with_kind({"other", kSize}), "holds other elements of 8 bytes");
  expect_refused(with_kind({"number", 16}), "holds number elements of 16 bytes");
  std::string damaged = good;
  damaged[20] = 'x';
  expect_refused(damaged, "is damaged in its header");
  damaged = good;
  damaged[kListSlotsAt] ^= 1;  // the ring begins in the last of its three slots
  expect_refused(damaged, "is damaged in its entries");
  std::filesystem::remove(file_);
  std::filesystem::create_directory(file_);
  EXPECT_EQ(open(3), nullptr);
  EXPECT_EQ(filetbl_read(file_.c_str(), "number", kSize), nullptr);
  EXPECT_THAT(messages(), HasSubstr("is not a regular file"));
}

/* Hashes do not protect from those who compute them. */
TEST_F(Filetbl, RefusesHostileCountsBeforeItTakesMemory) {
  const std::uint64_t huge = std::uint64_t{1} << 61, most = kKind.max_slots();
  const ListState states[] = {
      {2, 0, huge, 0, huge, 1},   // counts and rings beyond any file
      {2, 0, 3, 3, 1, 1},         // a first slot outside the ring
      {2, 0, 3, 0, 4, 1},         // more entries than slots
      {2, 0, 0, 0, 1, 1},         // entries without a ring
      {2, 0, most, 1, most, 1},   // a full ring in a file without slots
      {2, 0, most, 0, most, 1},   // as many, and none is there
      {huge * 2, 0, 3, 0, 0, 1},  // no generation can follow
      {2, huge * 4, 3, 0, 0, 1},  // nor sequence number
      {2, 0, 3, 0, 0, huge * 4},  // nor is that a maximum
  };
  for (const ListState &state : states) {
    ListHead head = empty_list_head(kKind);
    encode_state(state, &head[state_offset(state)]);
    expect_refused(std::string(head.begin(), head.end()), "is ");
  }
}

/* A power cut may keep the last slots written from the disk, of which those before them in
 * the ring were the newest: what is left in between is the list. */
TEST_F(Filetbl, LeavesOutEntriesThatAPowerCutCostAtItsEnds) {
  make_ring(3, 3);
  const std::string good = read(file_);
  const auto without_slot = [&](std::size_t slot) {
    std::string bytes = good;
    bytes.replace(kListSlotsAt + slot * kKind.slot_size(), kKind.slot_size(),
                  kKind.slot_size(), '\0');
    return bytes;
  };
  write(file_, without_slot(1));
  EXPECT_EQ(stored(), (Numbers{2, 3}));
  EXPECT_THAT(messages(), HasSubstr("has lost 1 entries at its ends"));
  write(file_, without_slot(2));
  EXPECT_EQ(stored(), (Numbers{3, 4}));
  const List list = open(3);
  EXPECT_TRUE(push(list, 9));
  EXPECT_EQ(numbers(list.get()), (Numbers{3, 4, 9}));
}

/* One changed byte, or a file cut anywhere: refused and untouched, or entries that were
 * there.  Nothing is invented. */
TEST_F(Filetbl, DamageAnywhereIsRefusedOrReadsAsPartOfTheList) {
  make_ring(4, 3);
  const std::string good = read(file_);
  const Numbers all = {3, 4, 5, 6};  // the first has gone with the last change
  long refused = 0;
  const auto check = [&](const std::string &bytes) {
    write(file_, bytes);
    const List list = open(4);
    if (list == nullptr) {
      ++refused;
      ASSERT_EQ(read(file_), bytes);
      ASSERT_NE(messages(), "");
      return;
    }
    const Numbers part = numbers(list.get());
    ASSERT_TRUE(std::search(all.begin(), all.end(), part.begin(), part.end()) !=
                    all.end() ||
                part.empty());
  };
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (const int bit : {1, 128}) {
      std::string bytes = good;
      bytes[at] = static_cast<char>(bytes[at] ^ bit);
      ASSERT_NO_FATAL_FAILURE(check(bytes)) << "byte " << at;
    }
    ASSERT_NO_FATAL_FAILURE(check(good.substr(0, at))) << "cut to " << at;
  }
  EXPECT_GT(refused, 200);
}

}  // namespace
}  // namespace ksutil::test
