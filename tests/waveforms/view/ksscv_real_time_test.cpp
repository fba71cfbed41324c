/* A view stays open for weeks beside a system that writes all the time: what has changed
 * must show, and what is broken must not take the rest with it. */
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "platform/stock/files.h"
#include "tests/waveforms/view/view_support.h"

namespace ksutil::test {
namespace {

class RealTime : public testing::Test {
 protected:
  /* A view of the first 10,000 s of the channel, with everything read. */
  ViewPtr shown(int columns = 100) {
    ViewPtr view = scene_.open();
    set_channel(view.get());
    ksscv_set_window(view.get(), kStart, kStart + 10000, columns);
    EXPECT_EQ(ksscv_wait(view.get(), kPatience), 1);
    return view;
  }
  Scene scene_;
};

TEST_F(RealTime, GrowthExtendsARowAndKeepsItsPyramid) {
  TrueRow row{kStart, 100.0, wandering(300000, 1)};
  scene_.add(row);
  const ViewPtr view = shown();
  for (unsigned i = 0; i < 6; i++) {
    const long before = counts_of(view.get()).chunks_read;
    scene_.append(row, wandering(17000 * (i + 1), i));
    look(view.get());
    const DataPtr data = ask(view.get());
    EXPECT_EQ(data->state, KSSCV_COMPLETE) << data->message;
    ASSERT_NO_FATAL_FAILURE(expect_envelope(*data, {row}));
    EXPECT_LE(counts_of(view.get()).chunks_read, before + 3);
  }
}

TEST_F(RealTime, ARowMayComeBeforeItsSamples) {
  TrueRow row{kStart, 100.0, wandering(200000, 1)};
  scene_.add(row);
  scene_.set_nsamp(row, 250000);
  const ViewPtr view = shown();
  DataPtr data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_ERROR);
  EXPECT_NE(
      std::string(data->message).find("has 200000 of the 250000 samples of record 0"),
      std::string::npos)
      << data->message;
  expect_envelope(*data, {row});
  const auto more = wandering(50000, 2);
  scene_.append_to_file(row, more);
  row.samples.insert(row.samples.end(), more.begin(), more.end());
  look(view.get());
  data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_COMPLETE) << data->message;
  expect_envelope(*data, {row});
}

TEST_F(RealTime, RowsComeChangeAndGo) {
  TrueRow row{kStart, 100.0, wandering(100000, 1)};
  scene_.add(row);
  const ViewPtr view = shown();
  TrueRow other{kStart + 2000.0025, 100.0, wandering(100000, 2)};
  scene_.add(other);
  look(view.get());
  expect_envelope(*ask(view.get()), {row, other});
  /* A later version of the second half of the first row. */
  TrueRow newer{kStart + 500.0025, 100.0, wandering(50000, 3)};
  newer.lddate = 2e9;
  scene_.add(newer);
  look(view.get());
  expect_envelope(*ask(view.get()), {row, other, newer});
  /* The second row goes to another channel. */
  EXPECT_EQ(dbputv(scene_.row(other.record), "chan", "BHN", kEndOfArguments), 0);
  look(view.get());
  expect_envelope(*ask(view.get()), {row, newer});
  /* Only the first row is left. */
  std::string table = read_file(scene_.name() + ".wfdisc");
  table.resize(table.size() / 3);
  write_file(scene_.file("table"), table);
  std::filesystem::rename(scene_.file("table"), scene_.name() + ".wfdisc");
  look(view.get());
  expect_envelope(*ask(view.get()), {row});
  std::filesystem::remove(scene_.name() + ".wfdisc");
  look(view.get());
  EXPECT_EQ(ask(view.get())->state, KSSCV_NOTHING);
}

TEST_F(RealTime, AReplacedFileIsReadAnew) {
  TrueRow row{kStart, 100.0, wandering(200000, 1)};
  scene_.add(row);
  const ViewPtr view = shown();
  /* Another file under the same name. */
  row.samples = wandering(200000, 2);
  write_file(scene_.file("new"), encoded("i4", row.samples));
  std::filesystem::rename(scene_.file("new"), scene_.file(row.file));
  look(view.get());
  expect_envelope(*ask(view.get()), {row});
  /* A longer one, which may well get the inode of the file before. */
  row.samples = wandering(210000, 4);
  write_file(scene_.file("new"), encoded("i4", row.samples));
  std::filesystem::rename(scene_.file("new"), scene_.file(row.file));
  scene_.set_nsamp(row, 210000);
  look(view.get());
  expect_envelope(*ask(view.get()), {row});
  /* The same file, written again with as many bytes. */
  row.samples = wandering(210000, 3);
  write_file(scene_.file(row.file), encoded("i4", row.samples));
  look(view.get());
  expect_envelope(*ask(view.get()), {row});
  /* A shorter one. */
  row.samples.resize(100000);
  write_file(scene_.file(row.file), encoded("i4", row.samples));
  look(view.get());
  const DataPtr data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_ERROR);
  expect_envelope(*data, {row});
}

TEST_F(RealTime, AVanishedFileConcernsItsChannelAlone) {
  TrueRow row{kStart, 100.0, wandering(100000, 1)};
  TrueRow gone{kStart + 2000, 100.0, wandering(100000, 2)};
  TrueRow other{kStart, 100.0, wandering(100000, 3)};
  other.chan = "BHN";
  for (TrueRow *each : {&row, &gone, &other}) scene_.add(*each);
  const ViewPtr view = shown();
  std::filesystem::rename(scene_.file(gone.file), scene_.file("away"));
  look(view.get());
  DataPtr data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_ERROR);
  EXPECT_NE(std::string(data->message).find("No such file or directory"),
            std::string::npos)
      << data->message;
  expect_envelope(*data, {row, gone});  // what was read stays
  const char *const stations[] = {"AAA", "AAA"}, *const channels[] = {"BHZ", "BHN"};
  ksscv_set_channels(view.get(), 2, stations, channels);
  data = final_answer(view.get(), KSSCV_ENVELOPE, 1);
  EXPECT_EQ(data->state, KSSCV_COMPLETE);
  expect_envelope(*data, {other});
  std::filesystem::rename(scene_.file("away"), scene_.file(gone.file));
  look(view.get());
  EXPECT_EQ(ask(view.get(), KSSCV_ENVELOPE, 0)->state, KSSCV_COMPLETE);
}

TEST_F(RealTime, RowsWithoutUseAreToldAndTheRestIsShown) {
  TrueRow row{kStart, 100.0, wandering(100000, 1)};
  scene_.add(row);
  TrueRow bad{kStart + 2000, 100.0, {1, 2, 3}};
  scene_.add(bad);
  EXPECT_EQ(dbputv(scene_.row(bad.record), "samprate", -1.0, kEndOfArguments), 0);
  const ViewPtr view = shown();
  DataPtr data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_ERROR);
  EXPECT_STREQ(data->message, "Record 1 of wfdisc cannot be used");
  expect_envelope(*data, {row});
  EXPECT_EQ(dbputv(scene_.row(bad.record), "samprate", 100.0, "time", -9999999999.999,
                   kEndOfArguments),
            0);
  look(view.get());
  EXPECT_STREQ(ask(view.get())->message, "Record 1 of wfdisc: its time cannot be used");
  EXPECT_EQ(dbputv(scene_.row(bad.record), "time", kStart + 2000, "datatype", "zz",
                   kEndOfArguments),
            0);
  look(view.get());
  data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_ERROR);
  EXPECT_NE(std::string(data->message).find("data type zz"), std::string::npos)
      << data->message;
  expect_envelope(*data, {row});
  /* A count that no file has. */
  EXPECT_EQ(dbputv(scene_.row(bad.record), "datatype", "i4", "nsamp", 99999999L,
                   kEndOfArguments),
            0);
  look(view.get());
  data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_ERROR);
  expect_envelope(*data, {row, bad});
  EXPECT_EQ(taken_messages(), "");  // states tell it all
}

std::atomic<int> failures{0};

TEST_F(RealTime, AReadThatFailedIsTriedAgain) {
  TrueRow row{kStart, 100.0, wandering(200000, 1)};
  scene_.add(row);
  FileCalls calls = system_file_calls();
  calls.pread = [](int fd, void *to, std::size_t bytes, off_t at) -> ssize_t {
    constexpr std::size_t kSamples = 4096;
    if (bytes >= kSamples && at >= 4 * 65536 && at < 8 * 65536 && failures-- > 0) {
      errno = EIO;
      return -1;
    }
    return system_file_calls().pread(fd, to, bytes, at);
  };
  failures = 2;
  const ScopedFileCalls broken(calls);
  const ViewPtr view = shown();
  const DataPtr data = ask(view.get());
  EXPECT_EQ(data->state, KSSCV_ERROR);
  EXPECT_NE(std::string(data->message).find("cannot read samples 65536 to 131071"),
            std::string::npos)
      << data->message;
  EXPECT_EQ(data->here[0], KSSCV_HERE);
  EXPECT_EQ(data->here[8], KSSCV_AWAITED);
  EXPECT_EQ(data->here[19], KSSCV_HERE);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (ask(view.get())->state != KSSCV_COMPLETE) {
    ASSERT_LT(std::chrono::steady_clock::now(), end);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  expect_envelope(*ask(view.get()), {row});
  EXPECT_EQ(counts_of(view.get()).failed_reads, 2);
}

TEST_F(RealTime, LooksByItselfAndBeginsWithoutATable) {
  const ViewPtr view = scene_.open(0, 2, 1, 0.01);
  set_channel(view.get());
  ksscv_set_window(view.get(), kStart, kStart + 1000, 10);
  EXPECT_EQ(final_answer(view.get())->state, KSSCV_NOTHING);
  TrueRow row{kStart, 100.0, wandering(100000, 1)};
  scene_.add(row);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (ask(view.get())->state != KSSCV_COMPLETE) {
    ASSERT_LT(std::chrono::steady_clock::now(), end);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  expect_envelope(*ask(view.get()), {row});
}

/* Many rows of many channels, as of years of an archive. */
TEST_F(RealTime, FindsAChannelAmongManyRows) {
  RowMaker maker("wfdisc");
  std::string table;
  constexpr long kRows = 50000;
  for (long i = 0; i < kRows; i++) {
    maker.set("sta", "S" + std::to_string(i % 50)).set("chan", "BHZ");
    maker.set("time", kStart + static_cast<double>(i)).set("samprate", 1.0);
    maker.set("nsamp", 50L).set("datatype", "i4").set("dir", ".");
    maker.set("dfile", "w").set("foff", 200 * (i % 50)).set("lddate", 1e9);
    table += maker.text() + (maker.text().back() == '\n' ? "" : "\n");
  }
  std::vector<double> samples;
  for (int i = 0; i < 50 * 50; i++) samples.push_back(i / 50);
  write_file(scene_.file("w"), encoded("i4", samples));
  write_file(scene_.name() + ".wfdisc", table);
  const ViewPtr view = scene_.open(0, 2, 1);
  const char *const sta = "S7", *const chan = "BHZ";
  ksscv_set_channels(view.get(), 1, &sta, &chan);
  for (const double length : {100.0, 1000.0, 50000.0, 200.0}) {
    ksscv_set_window(view.get(), kStart + 7, kStart + 7 + length, 100);
    const DataPtr data = final_answer(view.get());
    EXPECT_EQ(data->state, KSSCV_COMPLETE) << data->message;
    for (int i = 0; i < 100; i++) {
      ASSERT_EQ(data->min[i], 7) << length << " " << i;
      ASSERT_EQ(data->max[i], 7);
    }
  }
  EXPECT_EQ(counts_of(view.get()).rows, kRows);
}

}  // namespace
}  // namespace ksutil::test
