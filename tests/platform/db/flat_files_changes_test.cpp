/* Table files change while they are read: one that shrinks or is replaced under a running
 * server must cost rows, never the server. */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "flat_files_fixture.h"
#include "platform/db/db.h"
#include "platform/db/store/internal/flat_table.h"
#include "platform/stock/files.h"

namespace ksutil::db {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/* Many blocks, so that first, middle and last ones differ in kind. */
std::string many_rows(long count) {
  std::string text;
  for (long i = 0; i < count; ++i) text += lastid_row("k" + std::to_string(i), i);
  return text;
}
constexpr long kManyRows = 30000;

TEST_F(FlatFiles, UnchangedTableKeepsItsSnapshot) {
  write_file(path("lastid"), many_rows(10));
  TableStore &lastid = table("lastid");
  const auto first = lastid.snapshot();
  EXPECT_EQ(lastid.snapshot(), first);
  Stamp stamp;
  ASSERT_TRUE(lastid.stamp(stamp));
  EXPECT_EQ(stamp, first->stamp());
}

TEST_F(FlatFiles, UnchangedBlocksAreSharedWithTheSnapshotBefore) {
  write_file(path("lastid"), many_rows(kManyRows));
  TableStore &lastid = table("lastid");
  const auto before = lastid.snapshot();
  std::vector<RowText> texts;
  for (long i = 0; i < kManyRows; ++i) texts.push_back(before->text(i));
  {
    std::fstream file(path("lastid"), std::ios::in | std::ios::out);
    file.seekp(20000 * 43 + 20);
    file << "7777";
    file.seekp(0, std::ios::end);
    file << lastid_row("new", 1);
  }
  const auto after = lastid.snapshot();
  ASSERT_EQ(after->count(), kManyRows + 1);
  EXPECT_TRUE(after->text(0).same_place(texts[0]));
  EXPECT_FALSE(after->text(20000) == texts[20000]);
  EXPECT_FALSE(after->text(20001).same_place(texts[20001]));
  EXPECT_EQ(after->text(20001), texts[20001]);
  const Changes changes = changes_between(*before, *after);
  EXPECT_TRUE(changes.known);
  EXPECT_THAT(changes.changed, ElementsAre(20000));
  EXPECT_EQ(changes.old_count, kManyRows);
  EXPECT_EQ(changes.new_count, kManyRows + 1);
}

/* Random edits by another program, followed by one handle, against the plain texts. */
TEST_F(FlatFiles, ChangesAreThoseOfAPlainComparison) {
  std::mt19937 random(11);
  std::string text = many_rows(kManyRows);
  write_file(path("lastid"), text);
  TableStore &lastid = table("lastid");
  auto before = lastid.snapshot();
  for (long i = 0; i < before->count(); ++i) before->row(i);
  for (int round = 0; round < 20; ++round) {
    std::string edited = text;
    for (auto edit = random() % 6; edit > 0; --edit) {
      const std::size_t record = random() % (edited.size() / 43);
      edited[record * 43 + random() % 42] = static_cast<char>('a' + random() % 26);
    }
    for (auto more = random() % 3; more > 0; --more) edited += lastid_row("n", round);
    write_file(path("lastid"), edited);
    const struct timespec times[2] = {{0, UTIME_OMIT}, {2000000000 + round, 0}};
    ::utimensat(AT_FDCWD, path("lastid").c_str(), times, 0);

    std::vector<long> expected;
    for (std::size_t at = 0; at < text.size(); at += 43) {
      if (text.compare(at, 43, edited, at, 43) != 0) {
        expected.push_back(static_cast<long>(at / 43));
      }
    }
    const auto after = lastid.snapshot();
    const Changes changes = changes_between(*before, *after);
    ASSERT_TRUE(changes.known);
    EXPECT_EQ(changes.changed, expected) << "round " << round;
    for (const long record : {0L, after->count() / 2, after->count() - 1}) {
      EXPECT_EQ(after->row(record),
                edited.substr(static_cast<std::size_t>(record) * 43, 43));
    }
    for (long i = 0; i < after->count(); ++i) after->row(i);
    before = after;
    text = edited;
  }
}

TEST_F(FlatFiles, ChangesOfShrunkOrUnreadRowsAreNotKnown) {
  write_file(path("lastid"), many_rows(100));
  TableStore &lastid = table("lastid");
  const auto unread = lastid.snapshot();
  write_file(path("lastid"), many_rows(101));
  const auto grown = lastid.snapshot();
  EXPECT_FALSE(changes_between(*unread, *grown).known);
  EXPECT_FALSE(grown->row(100).empty());
  write_file(path("lastid"), many_rows(50));
  EXPECT_FALSE(changes_between(*grown, *lastid.snapshot()).known);
}

TEST_F(FlatFiles, FileThatShrinksWhileReadHasFewerRows) {
  write_file(path("lastid"), many_rows(kManyRows));
  TableStore &lastid = table("lastid");
  const auto snapshot = lastid.snapshot();
  EXPECT_FALSE(snapshot->row(0).empty());
  ASSERT_EQ(::truncate(path("lastid").c_str(), 20000 * 43 + 5), 0);
  EXPECT_FALSE(snapshot->row(19999).empty());
  EXPECT_EQ(snapshot->row(20000), "");
  EXPECT_EQ(snapshot->row(kManyRows - 1), "");
  EXPECT_EQ(lastid.snapshot()->count(), 20000);
}

TEST_F(FlatFiles, ReplacedRemovedAndNewFilesAreNoticedAtOnce) {
  write_file(path("lastid"), lastid_row("a", 1));
  TableStore &lastid = table("lastid");
  EXPECT_EQ(integer_of(lastid, "keyvalue", 0), 1);
  const auto old = lastid.snapshot();

  write_file(directory_ / "next", lastid_row("a", 2));
  std::filesystem::rename(directory_ / "next", path("lastid"));
  EXPECT_EQ(integer_of(lastid, "keyvalue", 0), 2);
  std::filesystem::rename(path("lastid"), directory_ / "aside");
  Stamp stamp;
  ASSERT_TRUE(lastid.stamp(stamp));
  EXPECT_FALSE(stamp.exists);
  EXPECT_EQ(stamp.count, 0);
  std::string wide = null_record(relation("kbcore", "lastid"));
  write_file(path("lastid"), wide);
  EXPECT_EQ(lastid.snapshot()->count(), 1);
  EXPECT_EQ(lastid.layout().width, 43);
  EXPECT_EQ(old->row(0), lastid_row("a", 1)) << "the old snapshot still shows its rows";
}

TEST_F(FlatFiles, LinksAndDirectoriesThatAreExchangedAreNoticedAtOnce) {
  namespace fs = std::filesystem;
  for (const char *place : {"one", "two"}) {
    fs::create_directory(directory_ / place);
    write_file(directory_ / place + "/db.lastid", lastid_row(place, place[0] == 'o'));
    write_file(directory_ / place + "/db", "schema css3.0\n");
  }
  fs::create_directory_symlink(directory_ / "one", directory_ / "link");
  fs::create_symlink(directory_ / "one/db.lastid", path("lastid"));
  const auto database = open_flat_files(directory_ / "link/db", "r");
  TableStore &by_directory = *database->table("lastid");
  TableStore &by_link = table("lastid");
  for (const int now : {0, 1, 0, 1}) {
    const std::string place = now == 1 ? "one" : "two";
    fs::remove(directory_ / "link");
    fs::create_directory_symlink(directory_ / place, directory_ / "link");
    EXPECT_EQ(integer_of(by_directory, "keyvalue", 0), now);
    fs::remove(path("lastid"));
    fs::create_symlink(directory_ / place + "/db.lastid", path("lastid"));
    EXPECT_EQ(integer_of(by_link, "keyvalue", 0), now);
  }
}

/* Removes the file that is being opened before it can be looked at. */
std::string removed_when_opened;

int open_and_remove(const char *name, int flags, mode_t mode) {
  const int fd = ::open(name, flags, mode);
  if (name == removed_when_opened) {
    removed_when_opened.clear();
    ::unlink(name);
  }
  return fd;
}

TEST_F(FlatFiles, FileRemovedDuringTheLookIsAbsent) {
  write_file(path("lastid"), lastid_row("a", 1));
  TableStore &lastid = table("lastid");
  FileCalls calls = system_file_calls();
  calls.open = open_and_remove;
  const ScopedFileCalls scope(calls);
  removed_when_opened = path("lastid");
  Stamp stamp;
  ASSERT_TRUE(lastid.stamp(stamp));
  EXPECT_FALSE(stamp.exists);
}

bool flip_bytes = false;

ssize_t pread_flipped(int fd, void *to, std::size_t bytes, off_t at) {
  const ssize_t got = ::pread(fd, to, bytes, at);
  for (ssize_t i = 0; flip_bytes && i < got; ++i) {
    char &c = static_cast<char *>(to)[i];
    if (c == '7') c = '8';
  }
  return got;
}

/* Programs that copy tables in place put the time of change back. */
TEST_F(FlatFiles, RowsRewrittenWithTheTimePutBackAreRead) {
  write_file(path("lastid"), lastid_row("a", 7) + lastid_row("b", 1));
  TableStore &lastid = table("lastid");
  EXPECT_EQ(integer_of(lastid, "keyvalue", 0), 7);
  Stamp before, after;
  ASSERT_TRUE(lastid.stamp(before));
  struct stat status;
  ASSERT_EQ(::stat(path("lastid").c_str(), &status), 0);
  const struct timespec times[2] = {status.st_atim, status.st_mtim};
  do { /* until the clock of the status times has stepped on */
    write_file(path("lastid"), lastid_row("a", 9) + lastid_row("b", 1));
    ASSERT_EQ(::utimensat(AT_FDCWD, path("lastid").c_str(), times, 0), 0);
    ASSERT_TRUE(lastid.stamp(after));
  } while (after == before);
  EXPECT_EQ(after.time, before.time);
  EXPECT_EQ(integer_of(lastid, "keyvalue", 0), 9);
}

TEST_F(FlatFiles, SnapshotAnewShowsWhatTheStampDoesNot) {
  std::string text;
  for (int i = 0; i < kManyRows; ++i) text += lastid_row("k", i % 5);
  text.replace(43, 43, lastid_row("k", 7));
  write_file(path("lastid"), text);
  TableStore &lastid = table("lastid");
  const auto before = lastid.snapshot();
  for (long i = 0; i < kManyRows; ++i) before->row(i);
  const RowText last = before->text(kManyRows - 1);
  EXPECT_EQ(integer_of(lastid, "keyvalue", 1), 7);
  FileCalls calls = system_file_calls();
  calls.pread = pread_flipped;
  const ScopedFileCalls scope(calls);
  flip_bytes = true;
  EXPECT_EQ(lastid.snapshot(), before);
  const auto anew = lastid.snapshot_anew();
  const Changes changes = changes_between(*before, *anew);
  EXPECT_TRUE(changes.known);
  EXPECT_THAT(changes.changed, ElementsAre(1));
  EXPECT_EQ(integer_of(lastid, "keyvalue", 1), 8);
  EXPECT_TRUE(anew->text(kManyRows - 1).same_place(last))
      << "unchanged blocks are kept";
  flip_bytes = false;
}

TEST_F(FlatFiles, RewrittenWithAnotherLayoutIsFittedAnew) {
  write_file(path("origin"),
             origin_row("css3.0", 1, 1.0) + origin_row("css3.0", 2, 2.0));
  TableStore &origin = table("origin");
  EXPECT_EQ(integer_of(origin, "orid", 1), 2);
  const auto before = origin.snapshot();
  write_file(path("origin"),
             origin_row("kbcore", 3, 1.0) + origin_row("kbcore", 4, 2.0));
  EXPECT_EQ(integer_of(origin, "orid", 1), 4);
  EXPECT_FALSE(changes_between(*before, *origin.snapshot()).known);
}

bool reads_fail = false;
ssize_t failing_pread(int fd, void *to, std::size_t bytes, off_t at) {
  if (!reads_fail) return ::pread(fd, to, bytes, at);
  errno = EIO;
  return -1;
}

TEST_F(FlatFiles, ReadErrorIsReportedAndPassesWithItsCause) {
  write_file(path("lastid"), many_rows(10));
  TableStore &lastid = table("lastid");
  const auto snapshot = lastid.snapshot();
  FileCalls calls = system_file_calls();
  calls.pread = failing_pread;
  const ScopedFileCalls scope(calls);
  reads_fail = true;
  EXPECT_EQ(snapshot->row(3), "");
  EXPECT_THAT(messages(), HasSubstr("Cannot read records 0 to 9"));
  reads_fail = false;
  EXPECT_EQ(snapshot->row(3), lastid_row("k3", 3));
}

/* A table larger than the budget is read in bounded memory, and is followed although its
 * rows were given up on the way. */
TEST_F(FlatFiles, BlocksBeyondTheBudgetAreGivenUp) {
  constexpr long kRows = 300000;
  constexpr std::size_t kLimit = std::size_t{3} << 20;
  write_file(path("lastid"), many_rows(kRows));
  FlatSettings settings{Schema::load("css3.0"), false, false,
                        std::make_shared<FlatShared>(kLimit), nullptr};
  FlatTable lastid(settings, relation("css3.0", "lastid"), {path("lastid")});
  const auto before = lastid.snapshot();
  const RowText kept = before->text(3);
  for (int pass = 0; pass < 2; ++pass) {
    for (long i = 0; i < kRows; i += 1000) {
      ASSERT_EQ(before->row(i), lastid_row("k" + std::to_string(i), i));
    }
    before->row(kRows - 1);
  }
  const auto &blocks = dynamic_cast<const BlockSnapshot &>(*before);
  std::size_t held = 0;
  for (std::size_t i = 0; i < blocks.blocks(); ++i)
    held += blocks.held_block(i).block.size();
  EXPECT_LE(held, kLimit + (std::size_t{1} << 19)) << "the block that is held, beside";
  EXPECT_TRUE(before->text(3).same_place(kept));
  std::ofstream(path("lastid"), std::ios::app) << lastid_row("new", 1);
  const Changes changes = changes_between(*before, *lastid.snapshot());
  EXPECT_TRUE(changes.known);
  EXPECT_THAT(changes.changed, IsEmpty());
}

/* Callers use a row of one table while they look others up, however little they asked
 * for. */
TEST_F(FlatFiles, ARowStaysWhileBlocksOfAnotherTableAreRead) {
  constexpr long kRows = 40000;
  write_file(path("lastid"), many_rows(kRows));
  write_file(path("origin"), origin_row("css3.0", 7, 10.0));
  const auto store = open_store(directory_ / "db", "r", 0);
  const auto origin = store->table("origin")->snapshot();
  const auto lastid = store->table("lastid")->snapshot();
  const std::string bytes(origin->row(0));
  for (long i = 0; i < kRows; i += 100) ASSERT_FALSE(lastid->row(i).empty());
  write_file(path("origin"), origin_row("css3.0", 7, 20.0));
  EXPECT_EQ(origin->row(0), bytes) << "it was given up and read again";
}

/* A daemon goes to / after it has opened its database by a relative name. */
TEST_F(FlatFiles, StayTheSameWhenTheWorkingDirectoryChanges) {
  namespace fs = std::filesystem;
  write_file(path("lastid"), many_rows(3));
  const fs::path before = fs::current_path();
  fs::create_directory(directory_ / "elsewhere");
  fs::current_path(directory_.path());
  Dbptr db;
  ASSERT_EQ(dbopen_noshare("db", "r+", &db), 0);
  fs::current_path(directory_ / "elsewhere");
  const Dbptr lastid = dblookup(db, "", "lastid", "", "");
  long count = 0;
  EXPECT_EQ(dbquery(lastid, dbq_record_count, &count), 0);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(
      dbaddv(lastid, "keyname", "added", "keyvalue", 4L, static_cast<char *>(nullptr)),
      3);
  EXPECT_TRUE(fs::is_empty("."));
  const char *folder = nullptr;  // in which waveforms of wfdisc are looked for
  EXPECT_EQ(dbquery(lastid, dbq_dir_name, &folder), 0);
  EXPECT_STREQ(folder, directory_.path().c_str());
  dbclose(db);
  fs::current_path(before);
  EXPECT_EQ(table("lastid").snapshot()->count(), 4);
}

/* A table that is removed is empty; one whose folder is moved, or whose file system is
 * unmounted, must not look as if somebody had removed its rows: ids would begin at 1. */
TEST_F(FlatFiles, AreNotEmptyWhenTheirFolderHasGone) {
  namespace fs = std::filesystem;
  const fs::path folder = directory_ / "a", moved = directory_ / "b";
  const std::string file = folder / "db.lastid", other = folder / "db.remark";
  for (const bool described : {false, true}) {
    fs::create_directory(folder);
    if (described) write_file(folder / "db", "schema css3.0\n");
    write_file(file, many_rows(3));
    const auto store = open_flat_files(folder / "db", "r+");
    TableStore &lastid = *store->table("lastid"), &remark = *store->table("remark");
    Stamp stamp;
    if (described) {
      ASSERT_TRUE(lastid.stamp(stamp)) << "else nothing was read before";
    }
    fs::rename(folder, moved);
    messages();
    for (const bool mount_point : {false, true}) {
      if (mount_point) fs::create_directory(folder);
      EXPECT_FALSE(lastid.stamp(stamp));
      EXPECT_THAT(messages(),
                  HasSubstr(mount_point ? file + ": its folder " + folder.string() +
                                              " is another one"
                                        : "Cannot look at its folder"));
      EXPECT_EQ(remark.snapshot(), nullptr) << "which has never had a file";
      EXPECT_EQ(append(remark, null_record(remark.layout())), -1);
      EXPECT_FALSE(fs::exists(other));
    }
    fs::remove(folder);
    fs::rename(moved, folder);
    ASSERT_TRUE(lastid.stamp(stamp));
    EXPECT_EQ(stamp.count, 3);
    if (described) fs::remove(folder / "db");
    fs::remove(file);
    ASSERT_TRUE(lastid.stamp(stamp));
    EXPECT_EQ(stamp.count, 0);
    fs::remove_all(folder);
  }
}

TEST_F(FlatFiles, AreNotEmptyWhenAnArchiveHasGone) {
  namespace fs = std::filesystem;
  write_file(directory_ / "db", "schema css3.0\ntable_path archive\n");
  const auto fails = [&] {
    Dbptr db;
    EXPECT_EQ(dbopen_noshare((directory_ / "db").c_str(), "r+", &db), 0);
    const bool failed = dbnextid(db, "orid") < 0;
    dbclose(db);
    return failed && !fs::exists(path("lastid"));
  };
  EXPECT_TRUE(fails()) << "no folder";
  const fs::path archive = directory_ / "archive";
  fs::create_directory(archive);
  write_file(archive / "db.lastid", lastid_row("orid", 7));
  TableStore &lastid = table("lastid");
  Stamp stamp;
  ASSERT_TRUE(lastid.stamp(stamp));
  EXPECT_EQ(stamp.count, 1);
  const fs::path elsewhere = directory_ / "elsewhere";
  fs::rename(archive, elsewhere);
  EXPECT_FALSE(lastid.stamp(stamp));
  fs::create_directory(archive);
  EXPECT_FALSE(lastid.stamp(stamp));
  fs::create_symlink(elsewhere / "nothing", archive / "db.lastid");
  EXPECT_TRUE(fails()) << "a link to nothing";
  fs::remove(archive / "db.lastid");
  fs::create_symlink(elsewhere / "db.lastid", archive / "db.lastid");
  ASSERT_TRUE(lastid.stamp(stamp));
  EXPECT_EQ(stamp.count, 1);
}

/* The texts that somebody holds must survive whatever happens to table and store. */
TEST_F(FlatFiles, RowTextsOutliveTheDatabase) {
  write_file(path("lastid"), many_rows(kManyRows));
  const RowText text = table("lastid").snapshot()->text(12345);
  stores_.clear();
  std::filesystem::remove(path("lastid"));
  EXPECT_EQ(text.view(), lastid_row("k12345", 12345));
}

}  // namespace
}  // namespace ksutil::db
