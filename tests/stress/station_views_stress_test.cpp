/* Displays pan and zoom over a channel that an acquisition system extends, whose files an
 * operator replaces, with caches far too small: no view may crash, hang, keep more than its
 * bound, or show in the end anything but what the files hold. */
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "tests/stress/stress_support.h"
#include "tests/waveforms/view/view_support.h"

using namespace stress;
using namespace ksutil::test;

namespace {

struct Client {
  ksscv *view = nullptr;
  std::atomic<bool> inside{false};
  std::atomic<long> calls{0};

  static void on_more(ksscv *view, const int *channels, int n, void *context) {
    auto &client = *static_cast<Client *>(context);
    EXPECT_FALSE(client.inside.exchange(true));
    for (int i = 0; i < n; i++) {
      ksscv_data *data = nullptr;
      ksscv_get(view, channels[i], KSSCV_ENVELOPE, 0, &data);
      ksscv_free_data(data);
    }
    client.calls++;
    client.inside = false;
  }

  /* Moves about until `over`, and asks for everything. */
  void pan(unsigned seed, const std::atomic<bool> &over) {
    std::mt19937 random(seed);
    const char *const stations[] = {"AAA", "AAA", "NONE"};
    const char *const channels[] = {"BHZ", "BHN", "BHZ"};
    while (!over) {
      if (below(random, 20) == 0) {
        ksscv_set_channels(view, static_cast<int>(below(random, 4)), stations,
                           channels);
      }
      const double from = kStart - 500.0 + below(random, 12000);
      const double length = below(random, 3) == 0 ? 10.0 + below(random, 50)
                                                  : 100.0 + below(random, 9000);
      ksscv_set_window(view, from, from + length,
                       1 + static_cast<int>(below(random, 2000)));
      for (int i = 0; i < 3; i++) {
        ksscv_data *data = nullptr;
        const int what = below(random, 4) == 0 ? KSSCV_SAMPLES : KSSCV_ENVELOPE;
        if (ksscv_get(view, i, what, 0, &data) != 0) continue;
        for (int k = 0; k < data->n; k++) {
          const double value = what == KSSCV_SAMPLES ? data->samples[k] : data->max[k];
          ASSERT_TRUE(std::abs(value) <= 30000 || value == 1e34) << value;
        }
        ksscv_free_data(data);
      }
      if (below(random, 3) == 0) ksscv_wait(view, 0.02);
      if (below(random, 50) == 0) ksscv_refresh(view);
      ksscv_counts counts;
      ASSERT_EQ(ksscv_counters(view, &counts), 0);
      ASSERT_LE(counts.cache_bytes, counts.cache_bound);
    }
  }
};

TEST(StationViews, ShowWhatTheFilesHoldInTheEnd) {
  const Watchdog watchdog("station views");
  std::mt19937 random(seed());
  Scene scene;
  TrueRow growing{kStart, 100.0, wandering(100000, any(random))};
  TrueRow replaced{kStart, 100.0, wandering(300000, any(random))};
  replaced.chan = "BHN";
  scene.add(growing);
  scene.add(replaced);

  constexpr int kClients = 3;
  std::vector<ViewPtr> views;
  std::vector<Client> clients(kClients);
  std::vector<std::thread> threads;
  std::atomic<bool> over{false};
  for (int i = 0; i < kClients; i++) {
    views.push_back(scene.open(1, 1 + i % 2, 1, 0.02));
    Client &client = clients[static_cast<std::size_t>(i)];
    client.view = views.back().get();
    ksscv_set_callback(client.view, Client::on_more, &client);
    threads.emplace_back(
        [&, &client = client, chosen = any(random)] { client.pan(chosen, over); });
  }
  const Deadline deadline;
  while (!deadline.over()) {
    switch (below(random, 4)) {
      case 0:
        replaced.samples = wandering(100000 + below(random, 300000), any(random));
        write_file(scene.file("new"), encoded("i4", replaced.samples));
        std::filesystem::rename(scene.file("new"), scene.file(replaced.file));
        scene.set_nsamp(replaced, static_cast<long>(replaced.samples.size()));
        break;
      default:
        if (growing.samples.size() < 900000) {
          scene.append(growing, wandering(1 + below(random, 5000), any(random)));
        }
    }
    /* Views come and go. */
    const ViewPtr brief = scene.open(1, 1, 1, 0.02);
    set_channel(brief.get());
    ksscv_set_window(brief.get(), kStart, kStart + 10000, 100);
    ksscv_wait(brief.get(), 0.001 * below(random, 30));
  }
  over = true;
  for (std::thread &thread : threads) thread.join();
  const char *const stations[] = {"AAA", "AAA"}, *const channels[] = {"BHZ", "BHN"};
  for (const ViewPtr &view : views) {
    ksscv_set_channels(view.get(), 2, stations, channels);
    for (const double length : {12000.0, 1500.0, 20.0}) {
      ksscv_set_window(view.get(), kStart + 7.003, kStart + 7.003 + length, 500);
      look(view.get());
      for (int i = 0; i < 2; i++) {
        const DataPtr data = ask(view.get(), KSSCV_ENVELOPE, i);
        EXPECT_EQ(data->state, KSSCV_COMPLETE) << data->message;
        expect_envelope(*data, {i == 0 ? growing : replaced});
      }
    }
  }
  for (const Client &client : clients) EXPECT_GT(client.calls, 0);
}

}  // namespace
