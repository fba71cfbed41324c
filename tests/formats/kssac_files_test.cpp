/* Files come from other programs, other machines and broken disks.  None of them may crash
 * the reader, or make it take memory that the file does not fill; and what is written must
 * be readable by others. */
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <random>
#include <thread>

#include "formats/kssac.h"
#include "platform/stock/files.h"
#include "tests/formats/sac_bytes.h"

namespace ksutil::sac::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;

class KssacFiles : public testing::Test {
 protected:
  KssacFiles() { elog_clear_register(0); }
  std::string file(const std::string &bytes) const {
    /* File systems may flush a file that is cut and written anew. */
    std::filesystem::remove(path());
    return write_file(directory_ / "file.sac", bytes);
  }
  std::string path() const { return directory_ / "file.sac"; }
  TempDirectory directory_;
};

TEST_F(KssacFiles, AFileOfAnotherProgramIsReadWhole) {
  char tag[KS_TAG_SIZE];
  SacBytes bytes;
  bytes.series(4, 0.25F).text(kKstnm, "CRLZ    ").text(kKhole, "10      ");
  file(bytes.str());
  KSSac *const kssac = kssac_read_from_file_kssac(path().c_str(), "mine", tag);
  ASSERT_THAT(kssac, NotNull());
  EXPECT_EQ(kssac_get_kssac(tag), kssac);
  EXPECT_STREQ(kssac->name, "mine");
  EXPECT_EQ(std::string(kssac->image->header, KSSAC_HEADER_SIZE),
            bytes.str().substr(0, KSSAC_HEADER_SIZE));
  long nsamp;
  double time, samprate;
  float *samples = nullptr;
  ASSERT_EQ(kssac_getdata_kssac(kssac, &nsamp, &time, &samprate, &samples, nullptr), 0);
  EXPECT_THAT(std::vector<float>(samples, samples + nsamp), ElementsAre(1, 2, 3, 4));
  EXPECT_NEAR(time, kSeriesTime, 1e-6);
  EXPECT_EQ(samprate, 4.0);
  std::free(samples);
  EXPECT_EQ(kssac_free_tag("mine"), 0);
}

TEST_F(KssacFiles, WhatIsWrittenHasThePublishedLayout) {
  const KSSacPtr kssac = new_sac();
  const float samples[] = {1.0F, 2.0F, 3.0F};
  ASSERT_EQ(kssac_putdata_kssac(kssac.get(), 3, samples, "-", kSeriesTime, 2.0), 0);
  write_file(path(), std::string(5000, 'x'));
  ASSERT_EQ(kssac_write_to_file_kssac(kssac.get(), path().c_str()), 0);
  SacBytes expected;
  expected.series(3).integer(kIdep, 5).real(kScale, 1.0F).real(kE, 1.0F);
  expected.real(kDepmin, 1.0F).real(kDepmax, 3.0F).real(kDepmen, 2.0F);
  for (int word = kKstnm; word < kData; word += 2) {
    expected.text(word, std::string("-12345\0\0", 8));
  }
  expected.text(kKevnm, std::string("-12345\0\0\0\0\0\0\0\0\0\0", 16));
  /* The double next to .004 may lie on either side of it. */
  const bool cut = integer_at(*kssac, kNzmsec) == 3;
  expected.integer(kNzmsec, cut ? 3 : 4).real(kB, real_at(*kssac, kB));
  expected.real(kE, real_at(*kssac, kE));
  EXPECT_NEAR(real_at(*kssac, kB), cut ? 0.001 : 0.0, 1e-6);
  EXPECT_EQ(file_bytes(path()), expected.str());
}

TEST_F(KssacFiles, OtherVersionsAndByteOrdersAreRefused) {
  constexpr auto kForeign = std::endian::native == std::endian::little
                                ? std::endian::big
                                : std::endian::little;
  EXPECT_THAT(read_sac(file(SacBytes(kForeign).series(4).str())), IsNull());
  EXPECT_EQ(messages(), "kssac_read_from_file_kssac: sac header version from " +
                            path() + ", 100663296, not supported.\n");
  EXPECT_THAT(read_sac(file(SacBytes().series(4).integer(kNvhdr, 7).str())), IsNull());
  EXPECT_THAT(messages(), HasSubstr(", 7, not supported.\n"));
  EXPECT_THAT(read_sac(file(std::string(3000, ' '))), IsNull());
}

TEST_F(KssacFiles, FilesWithoutATimeSeriesHaveNoSamples) {
  for (const std::string &bytes :
       {SacBytes().series(4).integer(kIftype, 3).str(),
        SacBytes().series(4).integer(kNpts, 0).str(),
        SacBytes().series(4).integer(kNpts, INT_MIN).str(), SacBytes().str()}) {
    const KSSacPtr kssac = read_sac(file(bytes));
    ASSERT_THAT(kssac, NotNull());
    EXPECT_EQ(kssac->image->data, nullptr);
    EXPECT_EQ(kssac->image->npts_data, 0);
    EXPECT_EQ(kssac_write_to_file_kssac(kssac.get(), path().c_str()), -1);
    EXPECT_EQ(messages(), "kssac_write_to_file_kssac: No sac data samples to write.\n");
    EXPECT_EQ(file_bytes(path()), bytes);
  }
}

TEST_F(KssacFiles, LongerFilesGiveTheSamplesCounted) {
  const KSSacPtr kssac = read_sac(file(SacBytes().series(9).integer(kNpts, 2).str()));
  ASSERT_THAT(kssac, NotNull());
  EXPECT_EQ(kssac->image->npts_data, 2);
}

TEST_F(KssacFiles, EveryTruncationIsRefused) {
  const std::string whole = SacBytes().series(4).str();
  for (std::size_t size = 0; size < whole.size(); size += size < 600 ? 37 : 1) {
    char tag[KS_TAG_SIZE] = "old";
    file(whole.substr(0, size));
    ASSERT_THAT(kssac_read_from_file_kssac(path().c_str(), nullptr, tag), IsNull());
    EXPECT_STREQ(tag, "");
    const std::string expected =
        size < 632 ? "error for header (read " + std::to_string(size) +
                         " bytes instead of 632 bytes).\n"
                   : "error for data (read " + std::to_string(size - 632) +
                         " bytes instead of 16 bytes).\n";
    EXPECT_EQ(messages(),
              "kssac_read_from_file_kssac: read(" + path() + ") " + expected);
  }
}

/* Limits the memory of this process for one scope, so that taking what a header claims
 * would fail; sanitizers need too much of their own for that. */
class DataLimit {
 public:
  explicit DataLimit([[maybe_unused]] rlim_t bytes) {
    ::getrlimit(RLIMIT_DATA, &before_);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_DATA, &limit);
#endif
  }
  ~DataLimit() { ::setrlimit(RLIMIT_DATA, &before_); }
  DataLimit(const DataLimit &) = delete;
  DataLimit &operator=(const DataLimit &) = delete;

 private:
  rlimit before_{};
};

TEST_F(KssacFiles, AHugeCountTakesNoMemory) {
  SacBytes bytes;
  bytes.series(4).integer(kNpts, INT_MAX);
  file(bytes.str());
  const DataLimit limit(rlim_t{1} << 30);
  EXPECT_THAT(read_sac(path()), IsNull());
  EXPECT_THAT(
      messages(),
      HasSubstr("error for data (read 16 bytes instead of 8589934588 bytes).\n"));
  const std::string fifo = directory_ / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::thread writer([&] { write_file(fifo, bytes.str()); });
  EXPECT_THAT(read_sac(fifo), IsNull());
  writer.join();
  EXPECT_THAT(
      messages(),
      HasSubstr("error for data (read 16 bytes instead of 8589934588 bytes).\n"));
}

TEST_F(KssacFiles, APipeIsReadWhileItFills) {
  constexpr int kCount = 700000;  // more than is taken at first
  SacBytes bytes;
  bytes.series(kCount);
  const std::string fifo = directory_ / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::thread writer([&] { write_file(fifo, bytes.str()); });
  const KSSacPtr kssac = read_sac(fifo);
  writer.join();
  ASSERT_THAT(kssac, NotNull());
  EXPECT_EQ(kssac->image->npts_data, kCount);
  EXPECT_EQ(std::memcmp(kssac->image->data, bytes.str().data() + KSSAC_HEADER_SIZE,
                        4 * kCount),
            0);
}

TEST_F(KssacFiles, PathsThatCannotBeOpenedOrReadAreTold) {
  EXPECT_THAT(read_sac(directory_ / "none"), IsNull());
  EXPECT_THAT(messages(), HasSubstr("kssac_read_from_file_kssac: open(" +
                                    (directory_ / "none") + ") error.\n"));
  EXPECT_THAT(read_sac(directory_ / ""), IsNull());
  EXPECT_THAT(messages(), HasSubstr("error for header (read -1 bytes"));
  EXPECT_EQ(kssac_read_from_file_kssac(nullptr, nullptr, nullptr), nullptr);
  const KSSacPtr kssac = read_sac(file(SacBytes().series(4).str()));
  messages();
  const std::string nowhere = directory_ / "none/file";
  EXPECT_EQ(kssac_write_to_file_kssac(kssac.get(), nowhere.c_str()), -1);
  EXPECT_THAT(messages(),
              HasSubstr("kssac_write_to_file_kssac: open(" + nowhere + ") error.\n"));
}

/* Bytes that a full disk still takes. */
std::size_t disk_room;

ssize_t write_to_full_disk(int fd, const void *from, std::size_t bytes) {
  if (disk_room == 0) {
    errno = ENOSPC;
    return -1;
  }
  const ssize_t wrote = system_file_calls().write(fd, from, std::min(bytes, disk_room));
  disk_room -= static_cast<std::size_t>(std::max<ssize_t>(wrote, 0));
  return wrote;
}

TEST_F(KssacFiles, AFullDiskIsTold) {
  const KSSacPtr kssac = read_sac(file(SacBytes().series(4).str()));
  FileCalls calls = system_file_calls();
  calls.write = write_to_full_disk;
  const ScopedFileCalls scope(calls);
  const std::string start =
      "kssac_write_to_file_kssac: write(" + path() + ") error for ";
  disk_room = 600;
  EXPECT_EQ(kssac_write_to_file_kssac(kssac.get(), path().c_str()), -1);
  EXPECT_THAT(messages(),
              HasSubstr(start + "header (wrote 600 bytes instead of 632 bytes).\n"));
  disk_room = 640;
  EXPECT_EQ(kssac_write_to_file_kssac(kssac.get(), path().c_str()), -1);
  EXPECT_THAT(messages(),
              HasSubstr(start + "data (wrote 8 bytes instead of 16 bytes).\n"));
}

TEST_F(KssacFiles, NoMutationOfAFileDoesHarm) {
  std::mt19937 random(20240);
  const std::string whole = SacBytes().series(16).str();
  const auto below = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
  };
  int read = 0;
  for (int round = 0; round < 1500; ++round) {
    std::string bytes = whole;
    for (std::size_t flips = 1 + below(4); flips > 0; --flips) {
      bytes[below(bytes.size())] = static_cast<char>(below(256));
    }
    if (below(4) == 0) bytes.resize(below(bytes.size()));
    const KSSacPtr kssac = read_sac(file(bytes));
    if (kssac == nullptr) continue;
    ++read;
    long nsamp = 0;
    double time, samprate;
    float *samples = nullptr;
    kssac_getdata_kssac(kssac.get(), &nsamp, &time, &samprate, &samples, nullptr);
    EXPECT_LE(nsamp, 16);
    std::free(samples);
    Tbl *table = nullptr;
    EXPECT_EQ(kssac_header_2_tbl(kssac.get(), &table), 0);
    EXPECT_EQ(kssac_tbl_2_header(table, kssac.get()), 0);
    kssac_free_header_tbl(table);
    if (kssac->image->data == nullptr) continue;
    const std::string copy = directory_ / "copy.sac";
    std::filesystem::remove(copy);
    ASSERT_EQ(kssac_write_to_file_kssac(kssac.get(), copy.c_str()), 0);
    EXPECT_EQ(file_bytes(copy).substr(KSSAC_HEADER_SIZE),
              bytes.substr(KSSAC_HEADER_SIZE,
                           static_cast<std::size_t>(kssac->image->data_bytes)));
  }
  EXPECT_GT(read, 500);
  elog_clear_register(0);
}

}  // namespace
}  // namespace ksutil::sac::test
