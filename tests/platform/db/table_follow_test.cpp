/* A table is followed by fingerprints, whatever other programs do to its file and
 * whatever has been dropped of what was read.  A change that is missed stays on the
 * screen until the next restart; a row that mixes two states is a wrong location that
 * nobody ever computed. */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "platform/db/key_index.h"
#include "platform/db/store/internal/flat_table.h"
#include "platform/stock/fingerprint.h"
#include "platform/stock/shared_work.h"
#include "table_files.h"

namespace ksutil::db {
namespace {

using namespace testing;
using ::testing::HasSubstr;

constexpr std::size_t kLength = 43;  // of a row of lastid
constexpr std::size_t kFollowedRows = 12000;
constexpr long kNullKeyvalue = 0;  // of its field keyvalue

/* KSUTIL_TEST_ROUNDS makes the runs longer. */
long rounds(long usual) {
  const char *const text = std::getenv("KSUTIL_TEST_ROUNDS");
  return text == nullptr ? usual : std::atol(text);
}

/* A table file, and its rows as a plain model. */
class Edited {
 public:
  Edited(std::string path, long count, unsigned seed)
      : path_(std::move(path)), random_(seed) {
    append(count);
    write_anew();
  }

  std::vector<std::string> rows;

  /* One random edit.  False: the file's size and times may not show it. */
  bool edit() {
    switch (below(12)) {
      case 0:
      case 1:
      case 2: {
        const long more = 1 + static_cast<long>(below(3));
        append(more);
        write_tail(more);
        break;
      }
      case 3:
      case 4:
      case 5:
      case 6:
        for (auto more = below(4) + 1; more > 0 && !rows.empty(); --more) overwrite();
        break;
      case 7:
        rows.resize(rows.size() - below(std::min<std::size_t>(rows.size(), 20) + 1));
        if (::truncate(path_.c_str(), size()) != 0)
          throw std::runtime_error("truncate");
        break;
      case 8:  // many rows, as an import does, or most rows removed
        if (rows.size() < kFollowedRows) {
          append(static_cast<long>(below(9000)));
        } else {
          rows.resize(kFollowedRows / 3);
        }
        write_anew();
        break;
      case 9:
        replace();
        break;
      case 10:
        if (!rows.empty()) broken_row();
        break;
      case 11:  // within a tick of the system's clock
        if (rows.empty()) return true;
        overwrite();
        return false;
    }
    move_time();
    return true;
  }

  void move_time() {
    const struct timespec times[2] = {{0, UTIME_OMIT}, {1900000000 + ++changes_, 0}};
    ::utimensat(AT_FDCWD, path_.c_str(), times, 0);
  }

  std::size_t below(std::size_t n) { return random_() % n; }

 private:
  off_t size() const { return static_cast<off_t>(rows.size() * kLength); }
  /* Keys that come again and again, and null ones. */
  long key() {
    const auto kind = below(20);
    if (kind == 0) return kNullKeyvalue;
    return kind == 1 ? 50000000 + static_cast<long>(below(9))
                     : static_cast<long>(below(700));
  }
  std::string row() { return lastid_row("k" + std::to_string(below(1000)), key()); }
  void append(long more) {
    for (; more > 0; --more) rows.push_back(row());
  }
  void write(long at, const std::string &bytes) {
    const int file = ::open(path_.c_str(), O_WRONLY);
    if (::pwrite(file, bytes.data(), bytes.size(), at) < 0)
      throw std::runtime_error("write");
    ::close(file);
  }
  void write_tail(long more) {
    std::string bytes;
    for (auto each = rows.end() - more; each != rows.end(); ++each) bytes += *each;
    write(size() - static_cast<long>(bytes.size()), bytes);
  }
  void overwrite() {
    const std::size_t record = below(rows.size());
    rows[record] = row();
    write(static_cast<long>(record * kLength), rows[record]);
  }
  void broken_row() {
    const std::size_t record = below(rows.size());
    if (record == 0) return;  // by which the layout is known
    rows[record].back() = '#';
    write(static_cast<long>(record * kLength), rows[record]);
  }
  void write_anew() {
    std::string bytes;
    for (const std::string &each : rows) bytes += each;
    write_file(path_, bytes);
  }
  void replace() {
    std::string bytes;
    if (!rows.empty() && below(2) == 0) rows[below(rows.size())] = row();
    for (const std::string &each : rows) bytes += each;
    write_file(path_ + ".new", bytes);
    std::filesystem::rename(path_ + ".new", path_);
  }

  const std::string path_;
  std::mt19937 random_;
  long changes_ = 0;
};

/* The key of a row of the model; kNullKeyvalue for none. */
long model_key(const std::string &row) {
  return row.back() == '\n' ? std::atol(row.substr(16, 8).c_str()) : kNullKeyvalue;
}

struct Earlier {
  std::shared_ptr<const Snapshot> snapshot;
  std::vector<std::string> rows;
};

class Followed {
  TempDirectory folder_;

 public:
  Followed(long rows, std::size_t budget, unsigned seed)
      : edited(path(), rows, seed),
        settings_{Schema::load("css3.0"), false, false,
                  std::make_shared<FlatShared>(budget), nullptr},
        table_(settings_, relation("css3.0", "lastid"), {path()}) {}

  /* Follows the table to its present state and compares everything with the model. */
  void follow(bool anew) {
    const ElogScope broken_rows;
    const auto snapshot = anew ? table_.snapshot_anew() : table_.snapshot();
    ASSERT_NE(snapshot, nullptr);
    ASSERT_EQ(static_cast<std::size_t>(snapshot->count()), edited.rows.size());
    if (!earlier_.empty()) check_changes(earlier_.back(), *snapshot);
    index_.follow(snapshot);
    ASSERT_EQ(index_.snapshot(), snapshot);
    check_index(index_);
    /* Two indexes, of which one may follow changes and the other be built anew. */
    if (edited.below(2) == 0) fresh_ = KeyIndex("keyvalue");
    const KeyIndex::Following both[] = {{&second_, snapshot}, {&fresh_, snapshot}};
    KeyIndex::follow_all(both);
    for (const KeyIndex *index : {&second_, &fresh_}) {
      ASSERT_EQ(index->snapshot(), snapshot);
      check_index(*index);
    }
    for (const Earlier &each : earlier_) check_lost_keys(each);
    earlier_.push_back({snapshot, edited.rows});
    if (earlier_.size() > 3) earlier_.pop_front();
  }

  /* Rows at random, of the present state and of earlier ones, whose rows may have been
   * overwritten since: then they are refused. */
  void look_around() {
    const ElogScope broken_rows;
    for (const Earlier &each : earlier_) {
      for (int look = 0; look < 20 && !each.rows.empty(); ++look) {
        const std::size_t record = edited.below(each.rows.size());
        const auto row = static_cast<long>(record);
        const std::string &model = each.rows[record];
        const std::string wanted = model.back() == '\n' ? model : "";
        const std::string seen(edited.below(2) == 0 ? each.snapshot->row(row)
                                                    : each.snapshot->text(row).view());
        if (seen == wanted) continue;
        ASSERT_EQ(seen, "") << "record " << record;
        ASSERT_TRUE(each.snapshot->overtaken());
        ASSERT_FALSE(each.snapshot->complete());
      }
    }
  }

  Edited edited;
  long lost_known = 0;

 private:
  std::string path() const { return folder_ / "db.lastid"; }

  void check_changes(const Earlier &before, const Snapshot &snapshot) {
    if (before.snapshot->count() > snapshot.count()) return;
    const Changes changes = changes_between(*before.snapshot, snapshot);
    ASSERT_TRUE(changes.known);
    std::vector<long> expected;
    for (std::size_t i = 0; i < before.rows.size(); ++i) {
      if (before.rows[i] != edited.rows[i]) expected.push_back(static_cast<long>(i));
    }
    ASSERT_EQ(changes.changed, expected);
  }

  void check_index(const KeyIndex &index) {
    std::map<long, std::vector<long>> model;
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < edited.rows.size(); ++i) {
      const long key = model_key(edited.rows[i]);
      std::int64_t found = kNullKeyvalue;
      const bool has_key = index.key_of(static_cast<long>(i), found);
      if (has_key != (key != kNullKeyvalue) || found != key) ++wrong;
      if (key != kNullKeyvalue) model[key].push_back(static_cast<long>(i));
    }
    ASSERT_EQ(wrong, 0U);
    for (const auto &[key, rows] : model) {
      std::vector<long> found;
      for (const long row : index.find(key)) found.push_back(row);
      ASSERT_EQ(found, rows) << "key " << key;
    }
    for (int key = 700; key < 720; ++key) ASSERT_TRUE(index.find(key).empty());
  }

  void check_lost_keys(const Earlier &before) {
    std::vector<std::int64_t> keys;
    if (!index_.lost_keys(before.snapshot, keys)) return;
    ++lost_known;
    const std::set<std::int64_t> lost(keys.begin(), keys.end());
    for (std::size_t i = 0; i < before.rows.size(); ++i) {
      const long was = model_key(before.rows[i]);
      const long is =
          i < edited.rows.size() ? model_key(edited.rows[i]) : kNullKeyvalue;
      if (was != kNullKeyvalue && was != is) {
        ASSERT_TRUE(lost.contains(was)) << "row " << i;
      }
    }
  }

  FlatSettings settings_;
  FlatTable table_;
  KeyIndex index_{"keyvalue"}, second_{"keyvalue"}, fresh_{"keyvalue"};
  std::deque<Earlier> earlier_;
};

/* The threads that a table is worth: its own; a second, too; a second that the system
 * refuses. */
enum class Threads { kOne, kTwo, kRefused };
WorkSettings settings_for(Threads threads) {
  if (threads == Threads::kOne) return WorkSettings();
  return {.least_bytes = 1, .always = true, .no_thread = threads == Threads::kRefused};
}

/* Sizes below and above one block, which holds 8,192 rows; budgets below one block,
 * below the table, and above all; one thread, two, or two of which the system gives one. */
class TableFollow
    : public ::testing::TestWithParam<std::tuple<long, std::size_t, Threads>> {};

TEST_P(TableFollow, EqualsTheFileAfterAnyEdits) {
  const auto [rows, budget, threads] = GetParam();
  const ScopedWorkSettings sharing(settings_for(threads));
  Followed followed(rows, budget, static_cast<unsigned>(rows) + 7);
  followed.follow(false);
  long steps = rounds(rows > 1000 ? 16 : 50);
  while (steps-- > 0 && !HasFatalFailure()) {
    SCOPED_TRACE(steps);
    bool shown = true;
    for (auto more = 1 + followed.edited.below(2); more > 0; --more) {
      shown = followed.edited.edit() && shown;
    }
    followed.look_around();
    followed.follow(!shown);
    followed.look_around();
  }
  EXPECT_GT(followed.lost_known, 0);
}
constexpr std::size_t kBudgets[] = {1, 900000, std::size_t{1} << 30};
INSTANTIATE_TEST_SUITE_P(Sizes, TableFollow,
                         ::testing::Combine(::testing::Values(1L, 300L, 8191L, 20000L),
                                            ::testing::ValuesIn(kBudgets),
                                            ::testing::Values(Threads::kOne)));
INSTANTIATE_TEST_SUITE_P(Shared, TableFollow,
                         ::testing::Combine(::testing::Values(300L, 20000L),
                                            ::testing::ValuesIn(kBudgets),
                                            ::testing::Values(Threads::kTwo)));
INSTANTIATE_TEST_SUITE_P(NoThread, TableFollow,
                         ::testing::Combine(::testing::Values(20000L),
                                            ::testing::Values(900000U),
                                            ::testing::Values(Threads::kRefused)));

/* The calls of a test, from any thread. */
std::atomic<long> bytes_read{0}, fails_from{-1};
ssize_t counted_pread(int fd, void *to, std::size_t bytes, off_t at) {
  const long from = fails_from;
  if (from >= 0 && at >= from) {
    errno = EIO;
    return -1;
  }
  bytes_read += static_cast<long>(bytes);
  return ::pread(fd, to, bytes, at);
}

/* A table of several blocks that is read on two threads. */
class SharedReading : public ::testing::Test {
 protected:
  SharedReading() {
    FileCalls calls = system_file_calls();
    calls.pread = counted_pread;
    calls_.emplace(calls);
    bytes_read = 0;
  }
  ~SharedReading() override { fails_from = -1; }

  static constexpr long kRows = 33000;
  std::string path() const { return folder_ / "db.lastid"; }
  void write_rows() const {
    std::string bytes;
    for (long i = 0; i < kRows; ++i) bytes += lastid_row("k", 1 + i % 900);
    write_file(path(), bytes);
  }
  static long rows_with(const KeyIndex &index, long key) {
    long count = 0;
    for ([[maybe_unused]] const long row : index.find(key)) ++count;
    return count;
  }

  TempDirectory folder_;
  FlatSettings settings_{Schema::load("css3.0"), false, false,
                         std::make_shared<FlatShared>(1), nullptr};
  FlatTable table_{settings_, relation("css3.0", "lastid"), {path()}};
  const ScopedWorkSettings sharing_{settings_for(Threads::kTwo)};
  std::optional<ScopedFileCalls> calls_;
};

TEST_F(SharedReading, IndexesOfOneTableReadItOnce) {
  write_rows();
  KeyIndex first("keyvalue"), second("keyvalue");
  const auto snapshot = table_.snapshot();
  bytes_read = 0;
  const KeyIndex::Following both[] = {{&first, snapshot}, {&second, snapshot}};
  KeyIndex::follow_all(both);
  EXPECT_EQ(bytes_read, kRows * static_cast<long>(kLength));
  EXPECT_EQ(rows_with(first, 900), kRows / 900);
  EXPECT_EQ(rows_with(second, 1), kRows / 900 + 1);
}

/* The blocks that one of the threads cannot read are the caller's to report. */
TEST_F(SharedReading, ErrorsAreMessagesOfTheCaller) {
  write_rows();
  KeyIndex first("keyvalue"), second("keyvalue");
  messages();
  fails_from = 32768 * static_cast<long>(kLength);
  const auto snapshot = table_.snapshot();
  {
    const KeyIndex::Following both[] = {{&first, snapshot}, {&second, snapshot}};
    const int mark = elog_mark();
    KeyIndex::follow_all(both);
    EXPECT_THAT(messages(), HasSubstr("Cannot read records 32768 to 32999"));
    elog_flush(0, mark);
  }
  EXPECT_EQ(first.snapshot(), nullptr);
  EXPECT_EQ(second.snapshot(), nullptr);
  EXPECT_FALSE(snapshot->complete());
  EXPECT_FALSE(snapshot->overtaken());
  fails_from = -1;
  first.follow(table_.snapshot());
  EXPECT_EQ(rows_with(first, 900), kRows / 900);
}

/* Changes that come while the table is followed are found by the reading of the next
 * snapshot, on two threads as on one. */
TEST_F(SharedReading, ErrorsOfAFollowingLookAreMessagesToo) {
  write_rows();
  KeyIndex index("keyvalue");
  const auto first = table_.snapshot();
  index.follow(first);
  std::ofstream(path(), std::ios::app) << lastid_row("k", 12345);
  fails_from = 0;
  messages();
  {
    const auto next = table_.snapshot();
    if (next != nullptr) {
      EXPECT_FALSE(changes_between(*first, *next).known);
      EXPECT_FALSE(next->complete());
    }
    EXPECT_THAT(messages(), HasSubstr("Cannot read"));
  }
  fails_from = -1;
  index.follow(table_.snapshot());
  EXPECT_EQ(rows_with(index, 12345), 1);
}

/* Keys of which some need more than 32 bits. */
TEST(SharedScan, GivesEveryKeyOnce) {
  TempDirectory folder;
  const Relation &layout = relation("css3.0", "wfdisc");
  std::string bytes;
  std::map<std::int64_t, std::vector<long>> model;
  for (long i = 0; i < 9000; ++i) {
    const std::int64_t key =
        1 + (i % 7 == 0 ? 4294967296L * (i % 2) + i % 50 : i % 1000);
    std::string row = null_record(layout);
    ASSERT_TRUE(write_integer(*layout.find("foff"), key, row));
    bytes += row;
    model[key].push_back(i);
  }
  write_file(folder / "db.wfdisc", bytes);
  FlatSettings settings{Schema::load("css3.0"), false, false,
                        std::make_shared<FlatShared>(1), nullptr};
  FlatTable table(settings, layout, {folder / "db.wfdisc"});
  const ScopedWorkSettings sharing(settings_for(Threads::kTwo));
  KeyIndex index("foff");
  index.follow(table.snapshot());
  for (const auto &[key, rows] : model) {
    std::vector<long> found;
    for (const long row : index.find(key)) found.push_back(row);
    ASSERT_EQ(found, rows) << key;
  }
}

TEST(KeyIndexLostKeys, AreForgottenWhenTheTableIsIndexedAnew) {
  const ElogScope quiet;
  TempDirectory folder;
  const std::string path = folder / "db.lastid";
  Edited edited(path, 50, 1);
  FlatSettings settings{Schema::load("css3.0"), false, false,
                        std::make_shared<FlatShared>(1), nullptr};
  FlatTable table(settings, relation("css3.0", "lastid"), {path});
  KeyIndex index("keyvalue");
  const auto first = table.snapshot();
  index.follow(first);
  edited.rows.resize(20);
  ASSERT_EQ(::truncate(path.c_str(), 20 * kLength), 0);
  edited.move_time();
  index.follow(table.snapshot());
  std::vector<std::int64_t> keys;
  EXPECT_FALSE(index.lost_keys(first, keys));
  EXPECT_TRUE(keys.empty());
  /* A reading that began at an earlier snapshot takes the index back. */
  const auto shrunk = table.snapshot();
  edited.rows.push_back(lastid_row("x", 12345678));
  std::ofstream(path, std::ios::app) << edited.rows.back();
  edited.move_time();
  index.follow(table.snapshot());
  ASSERT_FALSE(index.find(12345678).empty());
  index.follow(shrunk);
  EXPECT_TRUE(index.find(12345678).empty());
  EXPECT_TRUE(index.lost_keys(shrunk, keys));
}

/* Every byte and every place counts. */
TEST(Fingerprint, DiffersForTextsThatDifferALittle) {
  const Fingerprint fingerprint;
  std::set<std::uint64_t> seen;
  std::size_t texts = 0;
  for (std::size_t length = 0; length <= 130; ++length) {
    std::string text(length, ' ');
    const auto add = [&] {
      seen.insert(fingerprint(text));
      ++texts;
    };
    add();
    for (std::size_t i = 0; i < length; ++i) {
      for (const char c : {'\0', '1', '\x21'}) {
        text[i] = c;
        add();
        text[i] = ' ';
      }
    }
  }
  EXPECT_EQ(seen.size(), texts);
  EXPECT_EQ(fingerprint("same"), Fingerprint()("same"));
}

}  // namespace
}  // namespace ksutil::db
