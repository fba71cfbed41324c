/* Follows station channels through a view, as a display does.
 *
 * Shows each channel as a line of COLUMNS characters, of which each stands for the range of
 * the samples in its column: the higher, the wider; a blank for a gap, a question mark for
 * samples that are still being read.  The view calls back when it has more: when files
 * have been read, have grown or have been replaced, and when rows have come.  The main thread
 * then asks again and prints the line of each channel that the callback named, unless it
 * is the line printed last: the view may tell of a chunk that an answer already had.
 * The program ends when all channels are complete; with UPDATES, when that many lines
 * have been printed.
 *
 * Usage: follow_channels DATABASE START END COLUMNS STA:CHAN[,STA:CHAN...] [UPDATES]
 * START and END are epoch seconds. */
#include <ksutil.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "channel_views.h"

namespace {

/* What the callback and the main thread share. */
struct News {
  std::mutex lock;  // guards `channels`
  std::condition_variable arrived;
  std::set<int> channels;
};

void on_more(ksscv *, const int *channels, int n, void *context) {
  News &news = *static_cast<News *>(context);
  const std::lock_guard lock(news.lock);
  news.channels.insert(channels, channels + n);
  news.arrived.notify_one();
}

DataPtr ask(ksscv *view, int channel) {
  ksscv_data *data = nullptr;
  ksscv_get(view, channel, KSSCV_ENVELOPE, 0, &data);
  return DataPtr(data);
}

/* The columns of a channel, relative to the widest of them. */
std::string picture(const ksscv_data &data) {
  static constexpr char kMarks[] = ".:-=+*#%@";
  constexpr int kLast = sizeof kMarks - 2;
  double widest = 0.0;
  for (int i = 0; i < data.n; i++) {
    if (data.here[i] == KSSCV_HERE)
      widest = std::max(widest, data.max[i] - data.min[i]);
  }
  std::string line;
  for (int i = 0; i < data.n; i++) {
    if (data.here[i] == KSSCV_GAP) {
      line += ' ';
    } else if (data.here[i] == KSSCV_AWAITED) {
      line += '?';
    } else {
      const double part = widest > 0 ? (data.max[i] - data.min[i]) / widest : 0.0;
      line += kMarks[static_cast<int>(part * kLast)];
    }
  }
  return line;
}

}  // namespace

int main(int argc, char **argv) {
  double tstart = 0.0, tend = 0.0;
  std::int64_t columns = 0, updates = 0;
  ChannelList list;
  if (argc < 6 || argc > 7 || !ksutil::parse_real(argv[2], tstart) ||
      !ksutil::parse_real(argv[3], tend) || !ksutil::parse_integer(argv[4], columns) ||
      columns < 1 || columns > 1000 || !list.parse(argv[5]) ||
      (argc == 7 && !ksutil::parse_integer(argv[6], updates))) {
    std::fputs(
        "usage: follow_channels DATABASE START END COLUMNS STA:CHAN[,STA:CHAN...]"
        " [UPDATES]\n(START and END are epoch seconds, as of date -u -d 2010-05-20 "
        "+%s)\n",
        stderr);
    return 2;
  }
  /* Declared before the view, whose end waits for the callback. */
  News news;
  const ViewPtr view = open_view(argv[1], list, on_more, &news);
  if (view == nullptr) return 1;
  if (ksscv_set_window(view.get(), tstart, tend, static_cast<int>(columns)) != 0) {
    elog_complain(0, "cannot show %s.\n", argv[1]);
    return 1;
  }
  std::set<int> incomplete;
  std::vector<std::string> shown(list.size());
  for (std::size_t i = 0; i < list.size(); i++) incomplete.insert(static_cast<int>(i));
  bool failed = false;
  for (std::int64_t printed = 0;
       updates > 0 ? printed < updates : !incomplete.empty();) {
    std::set<int> due;
    {
      std::unique_lock lock(news.lock);
      news.arrived.wait(lock, [&] { return !news.channels.empty(); });
      due.swap(news.channels);
    }
    for (const int channel : due) {
      const DataPtr data = ask(view.get(), channel);
      if (data == nullptr || data->state == KSSCV_COMING) continue;
      incomplete.erase(channel);
      failed |= data->state == KSSCV_ERROR;
      const auto at = static_cast<std::size_t>(channel);
      std::string line = list.name(at) + " |" + picture(*data) + "| ";
      line += data->state == KSSCV_NOTHING ? "nothing there" : data->message;
      if (line == shown[at]) continue;
      std::puts(line.c_str());
      shown[at] = std::move(line);
      printed++;
    }
    std::fflush(stdout);
  }
  return failed ? 1 : 0;
}
