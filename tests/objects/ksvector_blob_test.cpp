/* Traces arrive as blobs from other machines: their lengths, their addresses and their ends
 * cannot be trusted, and what is read must be freed once, by its owner. */
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "objects/ksvector2.h"
#include "platform/stock/bytes.h"
#include "platform/stock/files.h"
#include "platform/trace/trace.h"
#include "tests/objects/ksvector_support.h"

namespace {

std::string big_endian(std::int32_t a, std::int32_t b) {
  const std::int32_t host[] = {a, b};
  std::string bytes(sizeof host, '\0');
  hi2mi(host, bytes.data(), 2);
  return bytes;
}

std::string samples(std::vector<float> values) {
  std::string bytes(values.size() * sizeof(float), '\0');
  hf2mf(values.data(), bytes.data(), static_cast<long>(values.size()));
  return bytes;
}

/* A row of the table "trace", as a writer with samples of its own has it. */
std::string trace_row(double time, double samprate, long nsamp = 0) {
  static float writers_own;
  Dbptr trace = trnew();
  Dbptr row = dblookup(trace, nullptr, "trace", nullptr, nullptr);
  row.record =
      dbaddv(row, "sta", "ABC", "time", time, "samprate", samprate, "nsamp", nsamp,
             "data", static_cast<void *>(&writers_own), static_cast<char *>(nullptr));
  long size = 0;
  dbquery(row, dbq_record_size, &size);
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  EXPECT_EQ(dbget(row, text.data()), 0);
  text.resize(static_cast<std::size_t>(size));
  dbputv(row, "data", static_cast<void *>(nullptr), static_cast<char *>(nullptr));
  trdestroy(&trace);
  return text;
}

std::string blob(const std::string &row, const std::string &data) {
  const auto count = static_cast<std::int32_t>(data.size() / sizeof(float));
  return big_endian(static_cast<std::int32_t>(row.size()), count) + row + data;
}

class KSVectorBlob : public testing::Test {
 protected:
  ~KSVectorBlob() override {
    trdestroy(&trace_);
    for (const std::string &tag : tags_) ksvector_free(tag.c_str());
  }

  int read(const std::string &bytes) {
    ks_clear_register(0);
    const int result = ksvector_read_from_trblob(file_.write(bytes), &trace_, tag_);
    remember_tags();
    return result;
  }

  /* The vectors that rows name, so that they are freed. */
  void remember_tags() {
    tags_.clear();
    Dbptr row = dblookup(trace_, nullptr, "trace", nullptr, nullptr);
    long rows = 0;
    dbquery(row, dbq_record_count, &rows);
    for (row.record = 0; row.record < rows; row.record++) {
      char comment[128] = "";
      dbgetv(row, "comment", comment, static_cast<char *>(nullptr));
      if (std::strncmp(comment, "vect", 4) == 0) tags_.emplace_back(comment);
    }
  }

  /* Starts anew. */
  void forget() {
    for (const std::string &tag : tags_) ksvector_free(tag.c_str());
    trdestroy(&trace_);
  }

  MemoryFile file_;
  Dbptr trace_ = dbinvalid();
  char tag_[KS_TAG_SIZE] = "old";
  std::vector<std::string> tags_;
};

/* Programs read as many samples as the row says: a row that claims more than it has would be
 * read far beyond their end. */
TEST_F(KSVectorBlob, GivesARowTheCountOfItsSamples) {
  for (const long claimed : {-1L, 0L, 2L, 99999999L}) {
    ASSERT_EQ(read(blob(trace_row(100.0, 4.0, claimed), samples({1.5F, -2.0F, 7.0F}))),
              0);
    Dbptr row = dblookup(trace_, nullptr, "trace", nullptr, nullptr);
    row.record = 0;
    long nsamp = 0;
    double endtime = 0.0;
    ASSERT_EQ(
        dbgetv(row, "nsamp", &nsamp, "endtime", &endtime, static_cast<char *>(nullptr)),
        0);
    EXPECT_EQ(nsamp, 3) << claimed;
    EXPECT_EQ(endtime, 100.5) << claimed;
    ksvector2 *const copy = ksvector2_create_tsamp_from_db(row, nullptr, nullptr, 0, 0);
    ASSERT_NE(copy, nullptr) << taken_messages();
    EXPECT_EQ(std::vector<double>(copy->data, copy->data + copy->npts),
              (std::vector<double>{1.5, -2.0, 7.0}));
    ksvector2_free_vector(copy);
    forget();
  }
}

TEST_F(KSVectorBlob, MakesVectorsAndRowsOfTraces) {
  const std::string first = blob(trace_row(100.0, 4.0), samples({1.5F, -2.0F, 1e34F}));
  ASSERT_EQ(read(first + blob(trace_row(200.0, 2.0), samples({7.0F}))), 0);
  ASSERT_EQ(tags_.size(), 2U);
  EXPECT_EQ(tags_[1], tag_);
  const KSVector *const vector = ksvector_get_vector(tags_[0].c_str());
  ASSERT_NE(vector, nullptr);
  EXPECT_EQ(std::tuple(vector->npts, vector->time, vector->dt),
            std::tuple(3, 100.0, 0.25));
  EXPECT_EQ(std::pair(vector->data[0], vector->data[1]), std::pair(1.5, -2.0));
  EXPECT_GT(vector->data[2], 1e30);
  Dbptr row = dblookup(trace_, nullptr, "trace", nullptr, nullptr);
  row.record = 0;
  void *data = nullptr;
  char sta[16];
  ASSERT_EQ(dbgetv(row, "data", &data, "sta", sta, static_cast<char *>(nullptr)), 0);
  EXPECT_EQ(static_cast<float *>(data)[1], -2.0F);
  EXPECT_STREQ(sta, "ABC");
  /* A database that is there gets the rows of another file too. */
  ASSERT_EQ(read(first), 0);
  EXPECT_EQ(tags_.size(), 3U);
}

/* Every prefix ends with the traces that it holds whole.  The rows of those that it does
 * not are freed with the database, without what is at the writer's address. */
TEST_F(KSVectorBlob, SurvivesTheLossOfItsEnd) {
  const std::string trace = blob(trace_row(0.0, 1.0), samples({1.0F, 2.0F}));
  const std::string whole = trace + trace;
  trace_ = trnew();
  int before = 0, after = 0;
  long bytes = 0;
  for (std::size_t size = 0; size <= whole.size(); size++) {
    const char *const file = file_.write(whole.substr(0, size));
    const bool between = size % trace.size() < 8;
    ASSERT_EQ(ksvector_read_from_trblob(file, &trace_, tag_), between ? 0 : -1) << size;
    ksvector_get_heap_size(nullptr, nullptr, &after, &bytes);
    ASSERT_EQ(after - before, static_cast<int>(size / trace.size())) << size;
    before = after;
  }
  remember_tags();
  EXPECT_EQ(static_cast<int>(tags_.size()), after);
}

TEST_F(KSVectorBlob, EndsWithAMessageWhateverItHolds) {
  const std::string trace = blob(trace_row(5.0, 1.0), samples({1.0F, 2.0F}));
  trace_ = trnew();
  for_each_damage(trace + trace, [&](const std::string &bytes) {
    ks_clear_register(0);
    const int result = ksvector_read_from_trblob(file_.write(bytes), &trace_, tag_);
    ASSERT_EQ(taken_messages().empty(), result == 0);
  });
  remember_tags();
}

TEST_F(KSVectorBlob, SaysWhatIsWrong) {
  const std::string row = trace_row(0.0, 1.0), data = samples({1.0F});
  const auto expect_refused = [&](const std::string &bytes,
                                  const std::string &message) {
    EXPECT_EQ(read(bytes), -1);
    const std::string text = taken_messages();
    EXPECT_NE(text.find("ksvector_read_from_trblob: " + message), std::string::npos)
        << text;
    EXPECT_STREQ(tag_, "");
    forget();
  };
  const std::string path = file_.path();
  const auto size = static_cast<std::int32_t>(row.size());
  const std::string bad_rec = "read(rec) error for blob file " + path + "\n";
  expect_refused(big_endian(-1, 1) + row + data, bad_rec);
  expect_refused(big_endian(size + 1, 1) + row + " " + data, bad_rec);
  expect_refused(big_endian(0x7fffffff, 1) + row + data, bad_rec);
  expect_refused(big_endian(size - 5, 1) + row.substr(5) + data,
                 "dbadd(rec) error for blob file " + path + "\n");
  const std::string bad_data = "dbread(data) error for blob file " + path + "\n";
  expect_refused(big_endian(size, -1) + row + data, bad_data);
  expect_refused(big_endian(size, 0x7fffffff) + row + data, bad_data);
  std::string no_time = row;
  no_time.replace(25, 17, 17, 'x');
  expect_refused(blob(no_time, data),
                 "dbgetv(time,samprate) error for blob file " + path);
  expect_refused(blob(trace_row(0.0, 0.0), data), "ksvector_create_tsamp() error.\n");
  EXPECT_EQ(ksvector_read_from_trblob(nullptr, &trace_, nullptr), -1);
  EXPECT_EQ(ksvector_read_from_trblob("/nowhere/b", &trace_, nullptr), -1);
  EXPECT_NE(
      taken_messages().find("ksvector_read_from_trblob: open(/nowhere/b) error for "
                            "blob file\nNo such file or directory"),
      std::string::npos);
}

/* Signals of the program interrupt the reading of pipes. */
TEST_F(KSVectorBlob, GoesOnAfterInterruptions) {
  static bool interrupt;
  interrupt = false;
  ksutil::FileCalls calls = ksutil::system_file_calls();
  calls.read = [](int fd, void *to, std::size_t bytes) -> ssize_t {
    interrupt = !interrupt;
    errno = EINTR;
    return interrupt ? -1 : ::read(fd, to, bytes);
  };
  const std::string trace = blob(trace_row(5.0, 1.0), samples({1.0F, 2.0F}));
  {
    const ksutil::ScopedFileCalls interrupted(calls);
    EXPECT_EQ(read(trace + trace), 0) << taken_messages();
  }
  EXPECT_EQ(tags_.size(), 2U);
}

/* Standard input has no size to compare a count with. */
TEST_F(KSVectorBlob, ReadsStandardInput) {
  const std::string trace = blob(trace_row(5.0, 1.0), samples({1.0F, 2.0F}));
  const auto size = static_cast<std::int32_t>(trace_row(0.0, 1.0).size());
  const std::string lying = big_endian(size, 0x7fffffff) + trace_row(0.0, 1.0);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], (trace + lying).data(), trace.size() + lying.size()),
            static_cast<ssize_t>(trace.size() + lying.size()));
  close(ends[1]);
  const int kept = dup(STDIN_FILENO);
  dup2(ends[0], STDIN_FILENO);
  EXPECT_EQ(ksvector_read_from_trblob("-", &trace_, tag_), -1);
  EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
  dup2(kept, STDIN_FILENO);
  close(kept);
  close(ends[0]);
  remember_tags();
  ASSERT_EQ(tags_.size(), 1U);
  EXPECT_EQ(ksvector_get_vector(tags_[0].c_str())->data[1], 2.0);
}

}  // namespace
