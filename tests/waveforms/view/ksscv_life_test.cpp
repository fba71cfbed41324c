/* A display that waits for a disk is a display that hangs; and one that cannot be closed
 * while a disk is slow hangs for good. */
#include <fcntl.h>
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>
#include <thread>

#include "platform/stock/files.h"
#include "tests/waveforms/view/view_support.h"

namespace ksutil::test {
namespace {

using namespace std::chrono_literals;

/* Holds up the reading of samples: reads of 4096 bytes and more, of which it keeps the
 * places in the file. */
class Gate {
 public:
  Gate() {
    FileCalls calls = system_file_calls();
    calls.pread = [](int fd, void *to, std::size_t bytes, off_t at) {
      constexpr std::size_t kSamples = 4096;
      if (bytes >= kSamples) pass(at);
      return system_file_calls().pread(fd, to, bytes, at);
    };
    state() = {};
    calls_ = std::make_unique<ScopedFileCalls>(calls);
  }
  ~Gate() { open(); }

  static void close() {
    const std::lock_guard lock(mutex());
    state().closed = true;
  }
  static void open() {
    const std::lock_guard lock(mutex());
    state().closed = false;
    opened().notify_all();
  }
  static void delay(std::chrono::milliseconds pause) {
    const std::lock_guard lock(mutex());
    state().pause = pause;
  }
  static std::vector<off_t> places() {
    const std::lock_guard lock(mutex());
    return state().places;
  }

 private:
  struct State {
    bool closed = false;
    std::chrono::milliseconds pause{0};
    std::vector<off_t> places;
  };
  static State &state() {
    static State one;
    return one;
  }
  static std::mutex &mutex() {
    static std::mutex one;
    return one;
  }
  static std::condition_variable &opened() {
    static std::condition_variable one;
    return one;
  }
  static void pass(off_t at) {
    std::unique_lock lock(mutex());
    state().places.push_back(at);
    opened().wait(lock, [] { return !state().closed; });
    const auto pause = state().pause;
    lock.unlock();
    if (pause > 0ms) std::this_thread::sleep_for(pause);
  }
  std::unique_ptr<ScopedFileCalls> calls_;
};

class Life : public testing::Test {
 protected:
  void SetUp() override {
    row_ = {kStart, 100.0, wandering(1000000, 1)};
    scene_.add(row_);
  }
  /* A view of the channel that knows the rows from begin to end. */
  ViewPtr ready_view(long cache_bytes = 0, int threads = 2) {
    ViewPtr view = scene_.open(cache_bytes, threads);
    set_channel(view.get());
    ksscv_set_window(view.get(), kStart - 2e5, kStart - 1e5, 10);
    EXPECT_EQ(ksscv_wait(view.get(), kPatience), 1);
    return view;
  }
  template <class Condition>
  static void wait_for(const Condition &condition) {
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (!condition()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end);
      std::this_thread::sleep_for(1ms);
    }
  }

  std::optional<Gate> gate_{std::in_place};
  Scene scene_;
  TrueRow row_;
};

TEST_F(Life, AnswersWhileTheDiskWaits) {
  const ViewPtr view = ready_view();
  Gate::close();
  ksscv_set_window(view.get(), kStart, kStart + 10000, 100);
  wait_for([&] { return counts_of(view.get()).reading == 2; });
  const DataPtr nothing = ask(view.get());
  EXPECT_EQ(nothing->state, KSSCV_COMING);
  EXPECT_EQ(nothing->here[50], KSSCV_AWAITED);
  EXPECT_GT(counts_of(view.get()).queue, 0);
  EXPECT_EQ(ksscv_wait(view.get(), 0.01), 0);
  Gate::open();
  const DataPtr all = final_answer(view.get());
  EXPECT_EQ(all->state, KSSCV_COMPLETE);
  expect_envelope(*all, {row_});
  EXPECT_EQ(counts_of(view.get()).queue, 0);
}

TEST_F(Life, AWindowAskedForLaterOvertakes) {
  const ViewPtr view = ready_view(0, 1);
  Gate::close();
  ksscv_set_window(view.get(), kStart, kStart + 7000, 100000);
  wait_for([&] { return counts_of(view.get()).reading == 1; });
  /* Its samples begin at 2.8 million bytes; the window before had ten chunks more to go. */
  ksscv_set_window(view.get(), kStart + 7864.32, kStart + 9000, 100000);
  Gate::open();
  EXPECT_EQ(final_answer(view.get())->state, KSSCV_COMPLETE);
  constexpr off_t kChunkBytes = 4 * 65536, kLater = 4 * 786432;
  for (const off_t place : Gate::places()) {
    EXPECT_TRUE(place < kChunkBytes || place >= kLater) << place;
  }
}

TEST_F(Life, ReadsEachChunkOnceAndCountsIt) {
  const ViewPtr view = ready_view();
  ksscv_set_window(view.get(), kStart, kStart + 10000, 10);
  ask(view.get());
  final_answer(view.get());
  const ksscv_counts first = counts_of(view.get());
  EXPECT_EQ(first.chunks_read, 16);
  EXPECT_EQ(first.bytes_read, 4000000);
  EXPECT_EQ(first.rows, 1);
  EXPECT_EQ(first.segments, 1);
  EXPECT_GE(first.cache_bytes, 4000000);
  /* Any other window of the same samples is there. */
  for (const int columns : {1, 50, 300, 5000}) {
    ksscv_set_window(view.get(), kStart + columns, kStart + 9000, columns);
    EXPECT_EQ(ask(view.get())->state, KSSCV_COMPLETE);
  }
  const ksscv_counts second = counts_of(view.get());
  EXPECT_EQ(second.chunks_read, 16);
  EXPECT_EQ(second.hits, first.hits + 4);
  EXPECT_EQ(second.misses, first.misses);
}

TEST_F(Life, ReadsNeighboursAheadAndNoMore) {
  const ViewPtr view = scene_.open(0, 1, 1);
  set_channel(view.get());
  ksscv_set_window(view.get(), kStart + 4000, kStart + 5000, 1000);
  EXPECT_EQ(final_answer(view.get())->state, KSSCV_COMPLETE);
  /* 3000 s to 6000 s are chunks 4 to 9. */
  wait_for([&] { return counts_of(view.get()).chunks_read == 6; });
  ksscv_set_window(view.get(), kStart + 5000, kStart + 6000, 1000);
  EXPECT_EQ(ask(view.get())->state, KSSCV_COMPLETE);
  ksscv_set_window(view.get(), kStart + 4000, kStart + 4900, 1000);
  EXPECT_EQ(ask(view.get())->state, KSSCV_COMPLETE);
}

/* What a display with a callback alone sees. */
struct Display {
  ksscv *view = nullptr;
  std::mutex mutex;
  std::condition_variable news;
  int inside = 0, calls = 0;
  bool overlapped = false;
  std::set<int> told;
  std::vector<int> states = {KSSCV_COMING, KSSCV_COMING};
  bool moves = false;

  static void on_more(ksscv *view, const int *channels, int n, void *context) {
    Display &display = *static_cast<Display *>(context);
    {
      const std::lock_guard lock(display.mutex);
      display.overlapped |= display.inside++ > 0 || view != display.view;
      display.calls++;
    }
    /* All functions may be called here. */
    for (int i = 0; i < n; i++) {
      const DataPtr data = ask(view, KSSCV_ENVELOPE, channels[i]);
      const std::lock_guard lock(display.mutex);
      display.told.insert(channels[i]);
      display.states[static_cast<std::size_t>(channels[i])] = data->state;
    }
    counts_of(view);
    EXPECT_EQ(ksscv_wait(view, 1.0), -1);
    EXPECT_EQ(ksscv_refresh(view), 0);
    const std::lock_guard lock(display.mutex);
    if (std::exchange(display.moves, false)) {
      ksscv_set_window(view, kStart + 5000, kStart + 9000, 100);
    }
    display.inside--;
    display.news.notify_all();
  }
  bool complete() const {
    return states == std::vector<int>{KSSCV_COMPLETE, KSSCV_NOTHING};
  }
};

TEST_F(Life, ACallbackIsEnoughToSeeEverything) {
  Display display;
  const ViewPtr view = scene_.open(0, 2, 1, 0.01);
  display.view = view.get();
  display.moves = true;
  ksscv_set_callback(view.get(), Display::on_more, &display);
  const char *const stations[] = {"AAA", "NONE"}, *const channels[] = {"BHZ", "BHZ"};
  ksscv_set_channels(view.get(), 2, stations, channels);
  ksscv_set_window(view.get(), kStart, kStart + 9000, 100);
  {
    std::unique_lock lock(display.mutex);
    /* All may have been read before the first call: then it is the only one. */
    EXPECT_TRUE(display.news.wait_for(
        lock, 60s, [&] { return !display.moves && display.complete(); }));
    EXPECT_FALSE(display.overlapped);
    EXPECT_EQ(display.told, (std::set<int>{0, 1}));
    display.states[0] = KSSCV_COMING;
  }
  /* And then to see that the file has grown. */
  scene_.append(row_, wandering(500, 9));
  std::unique_lock lock(display.mutex);
  EXPECT_TRUE(display.news.wait_for(
      lock, 60s, [&] { return display.states[0] == KSSCV_COMPLETE; }));
  lock.unlock();
  EXPECT_GT(counts_of(view.get()).callbacks, 0);
  ksscv_set_callback(view.get(), nullptr, nullptr);
}

TEST_F(Life, AViewMayBeClosedInItsCallback) {
  struct Closer {
    std::atomic<int> calls{0};
    std::atomic<bool> closed{false};
  };
  static Closer closer;
  gate_.reset();  // the view's threads may end later than the test
  ksscv *const view = scene_.open(0, 2, 1, 0.01).release();
  ksscv_set_callback(
      view,
      [](ksscv *from, const int *, int, void *) {
        closer.calls++;
        ksscv_close(from);
        closer.closed = true;
      },
      nullptr);
  set_channel(view);
  ksscv_set_window(view, kStart, kStart + 9000, 100);
  wait_for([] { return closer.closed.load(); });
  EXPECT_EQ(closer.calls, 1);
}

TEST_F(Life, AViewClosesWhileTheDiskIsSlow) {
  ViewPtr view = ready_view(0, 1);
  Gate::delay(50ms);
  /* 16 chunks of four reads: more than three seconds. */
  ksscv_set_window(view.get(), kStart, kStart + 10000, 100);
  wait_for([&] { return counts_of(view.get()).reading == 1; });
  const auto begin = std::chrono::steady_clock::now();
  view.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
  EXPECT_LT(Gate::places().size(), 30U);
}

TEST_F(Life, WrongArgumentsAreErrors) {
  const ViewPtr view = scene_.open();
  ksscv_data *data = nullptr;
  EXPECT_EQ(ksscv_get(view.get(), 0, KSSCV_ENVELOPE, 0, &data), -1);  // no window yet
  EXPECT_EQ(ksscv_wait(view.get(), 0.0), -1);
  set_channel(view.get());
  EXPECT_EQ(ksscv_set_window(view.get(), kStart, kStart, 10), -1);
  EXPECT_EQ(ksscv_set_window(view.get(), kStart, std::nan(""), 10), -1);
  EXPECT_EQ(ksscv_set_window(view.get(), -1e300, 1e300, 10), -1);
  EXPECT_EQ(ksscv_set_window(view.get(), kStart, kStart + 1, 0), -1);
  EXPECT_EQ(ksscv_set_window(view.get(), kStart, kStart + 1, KSSCV_MAX_COLUMNS + 1),
            -1);
  EXPECT_EQ(ksscv_set_window(view.get(), -1e12, 1e12, 10), 0);
  EXPECT_EQ(final_answer(view.get())->state, KSSCV_COMPLETE);
  EXPECT_EQ(ksscv_get(view.get(), 1, KSSCV_ENVELOPE, 0, &data), -1);
  EXPECT_EQ(ksscv_get(view.get(), -1, KSSCV_ENVELOPE, 0, &data), -1);
  EXPECT_EQ(ksscv_get(view.get(), 0, 3, 0, &data), -1);
  EXPECT_EQ(ksscv_set_channels(view.get(), -1, nullptr, nullptr), -1);
  EXPECT_EQ(ksscv_set_channels(view.get(), 1, nullptr, nullptr), -1);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(ksscv_open(dbinvalid(), nullptr), nullptr);
  const OpenDatabase scratch(dbtmp("css3.0"));
  EXPECT_EQ(ksscv_open(scratch, nullptr), nullptr);
  EXPECT_NE(
      taken_messages().find("ksscv_open: A scratch database has no files to read"),
      std::string::npos);
  ksscv_close(nullptr);
  ksscv_free_data(nullptr);
}

}  // namespace
}  // namespace ksutil::test
