/* Watches the state of station channels through a view.
 *
 * Every PERIOD seconds it asks for the last SECONDS before now of each channel, and prints
 * a line for it: how long ago its last sample is, the share of the window that has samples, and
 * the range of its samples, with "LATE" when there is nothing in the newest third of the
 * window and "FLAT" when all samples are equal.  Data that arrives in files or as rows
 * shows up by itself: the view looks at both.
 * The program ends after REPORTS reports (0: it goes on until it is interrupted); its exit
 * code is 1 when a channel of the last report is late, flat or cannot be read.
 *
 * Usage: monitor_channels DATABASE SECONDS PERIOD STA:CHAN[,STA:CHAN...] REPORTS */
#include <ksutil.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>

#include "channel_views.h"

namespace {

constexpr int kColumns = 300;

/* Prints the line of a channel; whether nothing is wrong with it. */
bool report(const std::string &name, const ksscv_data &data) {
  int here = 0, newest = -1;
  double least = 0.0, greatest = 0.0;
  for (int i = 0; i < data.n; i++) {
    if (data.here[i] != KSSCV_HERE) continue;
    least = here == 0 ? data.min[i] : std::min(least, data.min[i]);
    greatest = here == 0 ? data.max[i] : std::max(greatest, data.max[i]);
    newest = i;
    here++;
  }
  if (here == 0) {
    std::printf("%-12s nothing in the window %s\n", name.c_str(), data.message);
    return false;
  }
  const bool late = newest < data.n * 2 / 3, flat = least == greatest;
  std::printf("%-12s %6.1f s old  %3d %%  %g to %g%s%s %s\n", name.c_str(),
              (data.n - 1 - newest) * data.dt, here * 100 / data.n, least, greatest,
              late ? " LATE" : "", flat ? " FLAT" : "", data.message);
  return !late && !flat && data.state != KSSCV_ERROR;
}

}  // namespace

int main(int argc, char **argv) {
  double seconds = 0.0, period = 0.0;
  std::int64_t reports = 0;
  ChannelList list;
  if (argc != 6 || !ksutil::parse_real(argv[2], seconds) || seconds <= 0 ||
      !ksutil::parse_real(argv[3], period) || period <= 0 || !list.parse(argv[4]) ||
      !ksutil::parse_integer(argv[5], reports) || reports < 0) {
    std::fputs(
        "usage: monitor_channels DATABASE SECONDS PERIOD STA:CHAN[,STA:CHAN...]"
        " REPORTS\n",
        stderr);
    return 2;
  }
  const ViewPtr view = open_view(argv[1], list, nullptr, nullptr);
  if (view == nullptr) return 1;
  bool good = true;
  for (std::int64_t n = 0; reports == 0 || n < reports; n++) {
    if (n > 0) std::this_thread::sleep_for(std::chrono::duration<double>(period));
    const double now = std_now();
    /* What was asked for is on its way; what comes later belongs to the next report. */
    if (ksscv_set_window(view.get(), now - seconds, now, kColumns) != 0 ||
        ksscv_refresh(view.get()) != 0 || ksscv_wait(view.get(), period) < 0) {
      ks_complain(0, "the view has ended.\n");
      return 1;
    }
    std::printf("%s\n", ksutil::time_text(now).c_str());
    good = true;
    for (std::size_t i = 0; i < list.size(); i++) {
      ksscv_data *data = nullptr;
      if (ksscv_get(view.get(), static_cast<int>(i), KSSCV_ENVELOPE, 0, &data) != 0) {
        return 1;
      }
      good &= report(list.name(i), *DataPtr(data));
    }
    std::fflush(stdout);
  }
  return good ? 0 : 1;
}
