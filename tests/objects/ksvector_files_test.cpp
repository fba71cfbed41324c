/* Responses and tables come from everywhere: a row read wrongly is an instrument with
 * another gain, a count believed is a program that dies for want of memory. */
#include <gtest/gtest.h>

#include <unistd.h>
#include <cerrno>

#include "platform/stock/files.h"
#include "tests/objects/ksvector_support.h"
#include "tests/support/comma_locale.h"

namespace {

using Points = std::vector<TestPoint>;

class KSVectorFap : public testing::Test {
 protected:
  KSVector *read(const std::string &text) {
    path_ = folder_.write("r", text);
    ks_clear_register(0);
    ksvector_free(vector_.tag);
    return ksvector_create_response_fap(path_.c_str(), "r", vector_.tag, &status_);
  }
  Points points(const std::string &text) {
    read(text);
    EXPECT_EQ(status_, 0) << text;
    return TestVector::points_of(ksvector_get_vector(vector_.tag));
  }
  void expect_refused(const std::string &text, const std::string &message) {
    EXPECT_EQ(read(text), nullptr) << text;
    EXPECT_EQ(status_, 1);
    EXPECT_STREQ(vector_.tag, "");
    EXPECT_EQ(taken_messages(), "ksvector_create_response_fap: " + message);
  }

  TempFolder folder_;
  TestVector vector_;
  std::string path_;
  int status_ = 99;
};

TEST_F(KSVectorFap, ReadsRowsAndLeavesOutWhatIsNone) {
  EXPECT_EQ(points("# Station: X\n"
                   "\n"
                   "  theoretical\t1 instrument fap source words\n"
                   "# comment\n"
                   " 4 rows\n"
                   "1 2 3 0.0 0.0\n"
                   "# 9 9 9\n"
                   "1.5 2\n"
                   "bad 2 3\n"
                   "+2.5e0 0x10 -inf\n"
                   "3 4 5 extra"),
            (Points{{1, {2, 3}}, {2.5, {16, -kInfinity}}, {3, {4, 5}}}));
  EXPECT_EQ(vector_->nalloc, 4);
  EXPECT_EQ(points("m 0 c fap2\n1\n1 2 3 4 5 6\n1 2 3 4 5 6 7 8\n9 9 9 9 9 9 9"),
            (Points{{1, {2, 3, 4, 5, 6, 7}}}));
}

TEST_F(KSVectorFap, TakesNoMoreRowsThanItSays) {
  EXPECT_EQ(points("m 0 c fap\r\n2\r\n\r\n1 2 3\r\n4 5 6\r\n7 8 9\r\n").size(), 2U);
  EXPECT_EQ(points("m 0 c fap\n0\n1 2 3\n").size(), 0U);
  EXPECT_NE(vector_->points, nullptr);
  const double y[] = {1, 2};
  EXPECT_EQ(ksvector_append(vector_.tag, 0, y, nullptr, 1), 0);
}

TEST_F(KSVectorFap, MakesNoRoomForRowsThatCannotCome) {
  for (const char *count : {"2147483647", "99999999999999999999"}) {
    const std::string text = std::string("m 0 c fap\n") + count + "\n1 2 3\n4 5 6\n";
    EXPECT_EQ(points(text).size(), 2U);
    EXPECT_LE(vector_->nalloc, 120'000);
  }
}

TEST_F(KSVectorFap, MakesRoomForACountThatTheBytesAllow) {
  std::string text = "m 0 c fap\n150000\n";
  for (int i = 0; i < 20'000; i++) text += std::to_string(i) + " 1 2\n";
  ASSERT_GT(text.size(), 150'000U);
  EXPECT_EQ(points(text).size(), 20'000U);
  EXPECT_EQ(vector_->nalloc, 180'000) << "a fifth more than the count";
}

TEST_F(KSVectorFap, SaysWhatItCannotParse) {
  expect_refused("", "cannot parse " + (folder_ / "r") + ".\n");
  expect_refused("m 0 c\n", "cannot parse " + path_ + ".\n");
  expect_refused("m zero c fap\n", "cannot parse " + path_ + ".\n");
  expect_refused("m 0 c paz\n", path_ + " not a fap or fap2 file (paz).\n");
  const std::string no_count = "Cannot parse number of faps from " + path_ + ".\n";
  for (const char *count : {"", "# 3\n", "rows 3\n", "-1\n"}) {
    expect_refused(std::string("m 0 c fap\n") + count, no_count);
  }
  EXPECT_EQ(ksvector_create_response_fap("/nowhere/r", "r", vector_.tag, &status_),
            nullptr);
  EXPECT_EQ(status_, -1);
  EXPECT_EQ(taken_messages(),
            "ksvector_create_response_fap: fopen(/nowhere/r) error.\n"
            "No such file or directory\n");
  EXPECT_EQ(ksvector_create_response_fap("/", "r", nullptr, &status_), nullptr);
  EXPECT_EQ(status_, -1);
}

TEST_F(KSVectorFap, ReadsNumbersWithAPointInAnyLocale) {
  const CommaLocale comma;
  if (!comma.ready()) GTEST_SKIP() << "no locale with a decimal comma";
  EXPECT_EQ(points("m 0 c fap\n1\n0.5 1.5 2.5\n"), (Points{{0.5, {1.5, 2.5}}}));
}

TEST_F(KSVectorFap, GivesUpCleanlyWhenMemoryIsShort) {
  ASSERT_NE(read("m 0 c fap\n2\n1 2 3\n4 5 6\n"), nullptr);
  const KSVector *made = nullptr;
  int refused = 0;
  while (made == nullptr && refused < 20) {
    ksvector_free(vector_.tag);
    ks_test_fail_alloc(++refused);
    made = ksvector_create_response_fap(path_.c_str(), "r", vector_.tag, &status_);
    ks_test_fail_alloc(0);
    EXPECT_EQ(status_, made == nullptr ? -1 : 0);
  }
  EXPECT_EQ(vector_->npts, 2);
  EXPECT_GT(refused, 5);
}

struct TableCase {
  const char *name;
  std::string text;
  int nskip, xcol;
  std::vector<int> ycols;
  int labelcol;
  Points points;
};

class KSVectorRead : public testing::TestWithParam<TableCase> {};

TEST_P(KSVectorRead, ReadsTable) {
  const TableCase &c = GetParam();
  const TempFolder folder;
  TestVector vector;
  ASSERT_NE(ksvector_read(folder.write("t", c.text).c_str(), "t", c.nskip, c.xcol,
                          static_cast<int>(c.ycols.size()), c.ycols.data(), c.labelcol,
                          vector.tag),
            nullptr);
  EXPECT_EQ(vector.points(), c.points);
}

INSTANTIATE_TEST_SUITE_P(
    Tables, KSVectorRead,
    testing::Values(
        TableCase{"SeparatorsAndComments",
                  "head 1\nhead,2\n# note\n\n1,2\t 3\n ,\t\n4 #5 6\n7 8 # 9\n 10 11",
                  2,
                  0,
                  {},
                  -1,
                  {{1, {2}}, {7, {8}}, {10, {11}}}},
        TableCase{"SkippedLinesAreCountedWithComments",
                  "# a\n1 2\n3 4\n",
                  2,
                  0,
                  {},
                  -1,
                  {{3, {4}}}},
        TableCase{"ColumnsInAnyOrder",
                  "1 2 a 4\n5 6 b 8\n",
                  0,
                  3,
                  {1, 0},
                  2,
                  {{4, {2, 1}, "a"}, {8, {6, 5}, "b"}}},
        TableCase{"OneColumnForEverything",
                  "7 x\n8e0\n",
                  0,
                  0,
                  {0, 0},
                  0,
                  {{7, {7, 7}, "7"}, {8, {8, 8}, "8e0"}}},
        /* Intended: what comes after the last number needed is not looked at. */
        TableCase{
            "LabelBehindTheNumbersIsNotSeen", "1 2 late\n", 0, 0, {1}, 2, {{1, {2}}}},
        /* Intended: a column that is missing keeps the value of the line before. */
        TableCase{"MissingColumnsKeepTheirValue",
                  "1 2\n3 4 5\n6 7\n8\n9 1 2\n",
                  0,
                  0,
                  {1, 2},
                  -1,
                  {{1, {2, 0}}, {3, {4, 5}}, {6, {7, 5}}, {9, {1, 2}}}},
        TableCase{"WordsAreZero",
                  "a b\ninf -inf\n",
                  0,
                  1,
                  {0},
                  -1,
                  {{0, {0}}, {-kInfinity, {kInfinity}}}},
        TableCase{"CarriageReturnsAreNotText",
                  "1 2 a\r\n\r\n3 4 b\r\n",
                  0,
                  0,
                  {1, 0},
                  0,
                  {{1, {2, 1}, "1"}, {3, {4, 3}, "3"}}},
        TableCase{"LongLinesAreCut",
                  "1 2" + std::string(1020, ' ') + "3\n4 5 " + std::string(70000, '6') +
                      " 7\n8 9 10\n",
                  0,
                  0,
                  {1, 2},
                  -1,
                  {{1, {2, 0}}, {4, {5, kInfinity}}, {8, {9, 10}}}},
        TableCase{"NulEndsALine",
                  std::string("1 2\0 3\n4 5\n", 11),
                  0,
                  0,
                  {},
                  -1,
                  {{1, {2}}, {4, {5}}}},
        TableCase{"NoSuchColumn", "1 2\n", 0, 5, {}, -1, {}}),
    [](const auto &test) { return test.param.name; });

TEST(KSVectorReadFailures, FreesTheVectorAndSaysWhy) {
  const TempFolder folder;
  const std::string file = folder.write("t", "1 2\n3 4\n");
  TestVector vector;
  ks_clear_register(0);
  const auto read = [&](const char *path, int ny, char *tag) {
    const int ycols[] = {1};
    return ksvector_read(path, "gone", 0, 0, ny, ycols, -1, tag);
  };
  EXPECT_EQ(read(file.c_str(), 1, nullptr), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector_read: ksvector_create() error.\n");
  EXPECT_EQ(read(file.c_str(), -1, vector.tag), nullptr);
  taken_messages();
  EXPECT_EQ(read("/nowhere/t", 1, vector.tag), nullptr);
  EXPECT_EQ(taken_messages(),
            "ksvector_read: fopen(/nowhere/t) error.\nNo such file or directory\n");

  /* A disk that fails after the first line. */
  static int reads;
  reads = 0;
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.read = [](int fd, void *to, std::size_t) -> ssize_t {
    errno = EIO;
    return reads++ == 0 ? ::read(fd, to, 4) : -1;
  };
  {
    const ksutil::ScopedFileCalls failing(calls);
    EXPECT_EQ(read(file.c_str(), 1, vector.tag), nullptr);
  }
  EXPECT_EQ(taken_messages(),
            "ksvector_read: fgets(" + file + ") error.\nInput/output error\n");
  EXPECT_STREQ(vector.tag, "");
  int count = -1;
  long bytes = -1;
  ksvector_get_heap_size("gone", nullptr, &count, &bytes);
  EXPECT_EQ(count, 0);
}

/* Signals of the program interrupt the reading of pipes and network files. */
TEST(KSVectorReadFailures, GoesOnAfterInterruptions) {
  static bool interrupt;
  interrupt = false;
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.read = [](int fd, void *to, std::size_t bytes) -> ssize_t {
    interrupt = !interrupt;
    errno = EINTR;
    return interrupt ? -1 : ::read(fd, to, bytes);
  };
  const MemoryFile file;
  std::string text;
  while (text.size() < 40'000) text += "1 2\n";
  TestVector vector;
  ks_clear_register(0);
  {
    const ksutil::ScopedFileCalls interrupted(calls);
    ksvector_read(file.write(text), "t", 0, 0, 0, nullptr, -1, vector.tag);
  }
  EXPECT_EQ(taken_messages(), "");
  EXPECT_EQ(vector.points().size(), 10'000U);
}

TEST(KSVectorReadFailures, GrowsWithTheFile) {
  const TempFolder folder;
  std::string text;
  for (int i = 0; i < 5000; i++) text += std::to_string(i) + " 1 label\n";
  TestVector vector;
  const int ycols[] = {1};
  ASSERT_NE(ksvector_read(folder.write("t", text).c_str(), "t", 0, 0, 1, ycols, 0,
                          vector.tag),
            nullptr);
  EXPECT_EQ(vector->npts, 5000);
  EXPECT_STREQ(vector->points[4999].label, "4999");
  EXPECT_EQ(vector->heap_size,
            static_cast<std::int64_t>(sizeof(KSVector)) + 2 +
                vector->nalloc * static_cast<std::int64_t>(sizeof(KSVectorPoint) + 8));
}

class KSVectorPf : public testing::Test {
 protected:
  ~KSVectorPf() override { pffree(pf_); }
  KSVector *read(const std::string &rows, const char *key = "table") {
    pffree(pf_);
    EXPECT_EQ(pfcompile(("text t\ntable &Tbl{\n" + rows + "\n}\n").c_str(), &pf_), 0);
    ks_clear_register(0);
    ksvector_free(vector_.tag);
    return ksvector_create_from_pf(pf_, key, "p", vector_.tag, &status_);
  }
  void expect_refused(const std::string &rows, const std::string &message) {
    EXPECT_EQ(read(rows), nullptr) << rows;
    EXPECT_EQ(status_, 1);
    EXPECT_EQ(taken_messages(), "ksvector_create_from_pf: " + message);
  }

  Pf *pf_ = nullptr;
  TestVector vector_;
  int status_ = 99;
};

TEST_F(KSVectorPf, ReadsUpToTenValuesARow) {
  ASSERT_NE(read("1 2 3\n 4\t5 6 words"), nullptr);
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(vector_.points(), (Points{{1, {2, 3}}, {4, {5, 6}}}));
  ASSERT_NE(read("0 1 2 3 4 5 6 7 8 9 10 11 12"), nullptr);
  EXPECT_EQ(vector_.points(), (Points{{0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}}}));
}

TEST_F(KSVectorPf, SaysWhichRowIsWrong) {
  expect_refused("1", "sscanf(1) error - no y value.\n");
  expect_refused("1 2\nx 2", "sscanf(x 2) error.\n");
  expect_refused("1 2\n&Arr{\na b\n}", "sscanf() error.\n");
  expect_refused("1 2\n1 2 3",
                 "Number of y values must be the same for all table rows.\n");
  expect_refused("", "No rows in table table.\n");
  EXPECT_EQ(read("1 2", "text"), nullptr);
  EXPECT_NE(
      taken_messages().find("ksvector_create_from_pf: parse_param(text) error.\n"),
      std::string::npos);
}

TEST_F(KSVectorPf, NamesTheMemoryThatIsMissing) {
  std::string messages;
  ASSERT_NE(read("1 2"), nullptr);
  Pf *const pf = pf_;
  for (int refused = 1; status_ == 0 || refused < 20; refused++) {
    ksvector_free(vector_.tag);
    ks_test_fail_alloc(refused);
    const KSVector *const made =
        ksvector_create_from_pf(pf, "table", "p", vector_.tag, &status_);
    ks_test_fail_alloc(0);
    if (made != nullptr) break;
    EXPECT_EQ(status_, -1) << "allocation " << refused;
    messages += taken_messages();
  }
  EXPECT_EQ(status_, 0);
  for (const char *part : {"vector", "vector->point", "vector->point.y"}) {
    const std::string text =
        std::string("ksvector_create_from_pf: malloc(") + part + ") error.\n";
    EXPECT_NE(messages.find(text), std::string::npos) << text;
  }
}

}  // namespace
