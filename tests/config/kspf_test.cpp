/* Settings read from the wrong place or lost in writing stop a network, or worse, do not:
 * a file must be found, merged and replaced as a whole. */
#include "config/kspf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/stock/files.h"
#include "tests/config/kspf_support.h"
#include "tests/platform/pf/pf_test_support.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace {

using ksutil::test::pf_of;
using ksutil::test::taken_messages;
using ksutil::test::text_of;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

TEST(KspfValues, TypesTakeWholeTextsAndFallBackWhenThereIsNone) {
  const KSPf pf = pf_of(
      "i -12\nd 1e3\nb off\nt 1970-01-02 00:00:01\nn 5.5\nempty\nbad 12abc\n"
      "map &Arr{\n\"x.y\" &Tbl{\none\n\"two \"\n}\n}\n",
      "my.pf");
  long i = 0;
  double d = 0.0;
  bool b = true;
  std::string s = "kept";
  EXPECT_EQ(pf.getInt("i", i), 0);
  EXPECT_EQ(i, -12);
  EXPECT_EQ(pf.getDouble("d", d), 0);
  EXPECT_EQ(d, 1000.0);
  EXPECT_EQ(pf.getBoolean("b", b), 0);
  EXPECT_FALSE(b);
  EXPECT_EQ(pf.getTime("t", d), 0);
  EXPECT_EQ(d, 86401.0);
  EXPECT_EQ(pf.getTime("n", d), 0);
  EXPECT_EQ(d, 5.5);
  EXPECT_EQ(pf.getInt("empty", i, 7), 1);
  EXPECT_EQ(i, 7);
  EXPECT_EQ(pf.getDouble("absent.too", d, 2.5), 1);
  EXPECT_EQ(d, 2.5);
  EXPECT_EQ(pf.getString("absent", s, "default"), 1);
  EXPECT_EQ(s, "default");
  EXPECT_EQ(pf.getString("empty", s, "default"), 0);
  EXPECT_EQ(s, "");
  EXPECT_EQ(pf.getString("map.\"x.y\"[1]", s), 0);
  EXPECT_EQ(s, "two ");
  Table<std::string> texts;
  EXPECT_EQ(pf.getStrings("map.\"x.y\"", texts), 0);
  EXPECT_THAT(std::vector<std::string>(texts.begin(), texts.end()),
              ElementsAre("one", "two "));
  EXPECT_EQ(taken_messages(), "");

  EXPECT_EQ(pf.getInt("bad", i, 1), -1);
  EXPECT_EQ(pf.getInt("d", i, 1), -1);
  EXPECT_EQ(pf.getBoolean("i", b), -1);
  EXPECT_EQ(pf.getString("map", s), -1);
  EXPECT_EQ(pf.getStrings("map", texts), -1);
  EXPECT_EQ(pf.getDouble("map[", d), -1);
  EXPECT_EQ(i, 7);
  EXPECT_EQ(texts.size(), 2);
  EXPECT_EQ(taken_messages(),
            "KSPf::getInt: my.pf:7: bad: '12abc' is not an integer.\n"
            "KSPf::getInt: my.pf:2: d: '1e3' is not an integer.\n"
            "KSPf::getBoolean: my.pf:1: i: '-12' is not yes or no.\n"
            "KSPf::getString: my.pf:8: map is an array, not a text.\n"
            "KSPf::getStrings: my.pf:8: map is an array, not a table.\n"
            "KSPf::getDouble: Faulty path 'map[': An index is a number from 0 in "
            "brackets.\n");
}

TEST(KspfValues, KeysKindsAndPlacesLeaveOutWhatALaterEntryReplaced) {
  const KSPf pf = pf_of("b 1\n# c\na 2\nb &Tbl{\nx\n}\n", "my.pf");
  Table<std::string> keys;
  EXPECT_EQ(pf.getKeys("", keys), 0);
  EXPECT_THAT(std::vector<std::string>(keys.begin(), keys.end()),
              ElementsAre("a", "b"));
  EXPECT_EQ(pf.kind("b"), PFTBL);
  EXPECT_EQ(pf.kind("b[1]"), PFINVALID);
  EXPECT_EQ(pf.count("b"), 1);
  EXPECT_EQ(pf.count("a"), -1);
  std::string file;
  long line = 0;
  EXPECT_EQ(pf.where("b[0]", file, line), 0);
  EXPECT_EQ(file, "my.pf");
  EXPECT_EQ(line, 5);
}

TEST(KspfMerge, LaterOverEarlierInItsPlace) {
  const std::string earlier =
      "# head\na 1 # first\nt &Tbl{\n  x\n}\nm &Arr{\n    k 1\n    # end\n}\nz 1\n";
  const KSPf later = pf_of(
      "# about b\nb 2\n\n# about a\na 9\nt &Tbl{\n# y\ny\n}\nm &Arr{\n# about l\n"
      "l \"2\" # two\nk 3\n}\nz &Arr{\nq 1\n}\n");
  KSPf pf = pf_of(earlier);
  EXPECT_EQ(pf.merge(later), 0);
  EXPECT_EQ(
      text_of(pf),
      "# head\na 9 # first\nt &Tbl{\n  # y\n  y\n}\nm &Arr{\n    k 3\n    # end\n"
      "    # about l\n    l \"2\"  # two\n}\nz &Arr{\n  q 1\n}\n# about b\nb 2\n");
  pf = pf_of(earlier);
  EXPECT_EQ(pf.merge(later, KSPF_APPEND_TABLES), 0);
  EXPECT_THAT(text_of(pf), HasSubstr("t &Tbl{\n  x\n  # y\n  y\n}\n"));
  pf = pf_of(earlier);
  EXPECT_EQ(pf.merge(later, KSPF_KEEP_PRESENT), 0);
  EXPECT_EQ(text_of(pf),
            earlier.substr(0, earlier.size() - 6) +
                "    # about l\n    l \"2\"  # two\n}\nz 1\n# about b\nb 2\n");
  EXPECT_EQ(pf.merge(pf, KSPF_APPEND_TABLES), 0);
  EXPECT_EQ(pf.count("t"), 2);
}

TEST(KspfMerge, KeepsTheLineEndsOfTheEarlierFile) {
  KSPf pf = pf_of("a 1\r\nm &Arr{\r\n  x 1\r\n}");
  EXPECT_EQ(pf.merge(pf_of("# b\nb 2\nm &Arr{\n# y\ny &Tbl{\n# 1\n1\n}\n}")), 0);
  EXPECT_EQ(pf.set("c", "3"), 0);
  EXPECT_EQ(text_of(pf),
            "a 1\r\nm &Arr{\r\n  x 1\r\n  # y\r\n  y &Tbl{\r\n    # 1\r\n    1\r\n"
            "  }\r\n}\r\n# b\r\nb 2\r\nc 3\r\n");
}

TEST(KspfMerge, MeansWhatTheTreesMergedMean) {
  for (const auto &[a, b] : std::vector<std::pair<const char *, const char *>>{
           {"a 1\nm &Arr{\nx 1\n}\n", "m &Arr{\ny &Tbl{\n1\n}\n}\na &Arr{\nb 1\n}"},
           {"m &Arr{}", "m &Arr{\nx 1\nx 2\n}\n"},
           {"a 1\r\nb 2", "m 1\r\nb \"\"\r\n"},
           {"t &Tbl{\n1\n}\n", "t &Arr{}\n\"q r\" &Tbl{\n#\n}\n"}}) {
    KSPf pf = pf_of(a);
    EXPECT_EQ(pf.merge(pf_of(b)), 0);
    const PfHandle into = compiled(a), from = compiled(b);
    ASSERT_EQ(pfmerge(into.get(), from.get()), 0);
    EXPECT_EQ(pfequal(compiled(text_of(pf)).get(), into.get()), 1) << text_of(pf);
  }
}

TEST(KspfFormat, LinesUpNeighboursAndKeepsComments) {
  KSPf pf = pf_of(
      "\n\n# head\n\n\n a 1 # one\n\tlonger   \"2 \"\nalone # c\r\nm &Arr{#o\n\n# in\n "
      "x "
      "&Tbl{\n\n}# e\n   # out\n\n} # close\nb   3");
  EXPECT_EQ(pf.format(), 0);
  EXPECT_EQ(
      text_of(pf),
      "# head\n\na      1  # one\nlonger \"2 \"\nalone  # c\nm &Arr{  #o\n  # in\n"
      "  x &Tbl{}  # e\n  # out\n}  # close\nb 3\n");
}

class KspfFile : public testing::Test {
 protected:
  void SetUp() override { elog_clear_register(0); }
  void TearDown() override { unsetenv("KSUTIL_PF_PATH"); }

  std::string put(const std::string &file, const std::string &text) {
    fs::create_directories((top_ / file).parent_path());
    return folder_.write(file, text);
  }
  std::string got(const std::string &file) {
    return ksutil::test::read_file(folder_ / file);
  }
  long files() {
    return std::distance(fs::directory_iterator(top_), fs::directory_iterator());
  }

  const ksutil::test::TempFolder folder_;
  const fs::path top_ = folder_.path();
};

TEST_F(KspfFile, IsMergedAlongTheSearchPathAndKeptWhenReadingFails) {
  put("site/server.pf", "a 1 # site\nb 1\n");
  const std::string user = put("user/server.pf", "b 2\nc 2\n");
  setenv("KSUTIL_PF_PATH",
         ((top_ / "site").string() + ":" + (top_ / "user").string()).c_str(), 1);
  KSPf pf;
  ASSERT_EQ(pf.read("server"), 0) << taken_messages();
  EXPECT_EQ(text_of(pf), "a 1 # site\nb 2\nc 2\n");
  std::string file;
  long line = 0;
  EXPECT_EQ(pf.where("c", file, line), 0);
  EXPECT_EQ(file, user);
  put("user/server.pf", "b 2\n}\n");
  EXPECT_EQ(pf.read("server"), -1);
  EXPECT_EQ(taken_messages(),
            "KSPf::read: " + user + ":2: A closing brace has no block to close.\n");
  EXPECT_EQ(pf.readFile((top_ / "absent").string()), -1);
  EXPECT_THAT(taken_messages(), StartsWith("KSPf::readFile: Cannot read "));
  EXPECT_EQ(text_of(pf), "a 1 # site\nb 2\nc 2\n");
}

TEST_F(KspfFile, IsReplacedAsAWholeWithItsModeBehindALink) {
  const std::string path = put("my.pf", "a 1\n");
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  fs::create_symlink("my.pf", top_ / "link.pf");
  KSPf pf;
  ASSERT_EQ(pf.readFile((top_ / "link.pf").string()), 0);
  ASSERT_EQ(pf.set("a", "2"), 0);
  ASSERT_EQ(pf.write((top_ / "link.pf").string()), 0) << taken_messages();
  EXPECT_TRUE(fs::is_symlink(top_ / "link.pf"));
  EXPECT_EQ(got("my.pf"), "a 2\n");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
  EXPECT_EQ(pf.write((top_ / "new.pf").string()), 0);
  EXPECT_EQ(got("new.pf"), "a 2\n");
  EXPECT_EQ(files(), 3);
}

TEST_F(KspfFile, IsMadeWhereALinkLeads) {
  fs::create_directory(top_ / "shared");
  fs::create_symlink("second.pf", top_ / "first.pf");
  fs::create_symlink("shared/real.pf", top_ / "second.pf");
  const KSPf pf = pf_of("a 1\n");
  ASSERT_EQ(pf.write((top_ / "first.pf").string()), 0) << taken_messages();
  EXPECT_TRUE(fs::is_symlink(top_ / "first.pf"));
  EXPECT_TRUE(fs::is_symlink(top_ / "second.pf"));
  EXPECT_EQ(got("shared/real.pf"), "a 1\n");

  fs::create_symlink("circle.pf", top_ / "circle.pf");
  EXPECT_EQ(pf.write((top_ / "circle.pf").string()), -1);
  EXPECT_THAT(taken_messages(),
              testing::EndsWith("Too many levels of symbolic links\n"));
  EXPECT_TRUE(fs::is_symlink(top_ / "circle.pf"));
}

TEST_F(KspfFile, StaysWhenTheDiskIsFull) {
  const std::string path = put("my.pf", "a 1\n");
  const KSPf pf = pf_of("a 2\n");
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.write = [](int fd, const void *from, std::size_t bytes) -> ssize_t {
    if (bytes > 1) return ksutil::system_file_calls().write(fd, from, 1);
    errno = ENOSPC;
    return -1;
  };
  {
    const ksutil::ScopedFileCalls full(calls);
    EXPECT_EQ(pf.write(path), -1);
  }
  EXPECT_EQ(taken_messages(),
            "KSPf::write: Cannot write " + path + ".\nNo space left on device\n");
  calls.write = ksutil::system_file_calls().write;
  calls.fsync = [](int) {
    errno = EIO;
    return -1;
  };
  {
    const ksutil::ScopedFileCalls broken(calls);
    EXPECT_EQ(pf.write(path), -1);
  }
  EXPECT_EQ(got("my.pf"), "a 1\n");
  EXPECT_EQ(files(), 1);
  EXPECT_EQ(pf.write((top_ / "no/folder.pf").string()), -1);
  EXPECT_EQ(pf.write(top_.string()), -1);
}

TEST(KspfCopies, MayBeChangedByTheirOwnThreads) {
  const KSPf shared = pf_of("a 0\nt &Tbl{\nx\n}\n");
  std::vector<std::thread> threads;
  for (int n = 1; n <= 4; ++n) {
    threads.emplace_back([copy = shared, n]() mutable {
      for (int i = 0; i < 50; ++i) {
        const KSPf before = copy;
        EXPECT_EQ(copy.set("a", std::to_string(n)), 0);
        EXPECT_EQ(copy.insert("t[0]", "y"), 0);
        EXPECT_EQ(before.count("t"), i + 1);
      }
      long a = 0;
      EXPECT_EQ(copy.getInt("a", a), 0);
      EXPECT_EQ(a, n);
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(text_of(shared), "a 0\nt &Tbl{\nx\n}\n");
}

}  // namespace
