#include "waveforms/view/internal/channel_view.h"

#include <algorithm>

#include "platform/elog/failure.h"

namespace ksutil::scv {

ChannelView::ChannelView(ksscv *handle, void (*destroy)(ksscv *), Dbptr db, Dbptr table,
                         const ksscv_options &options)
    : db_(db),
      table_(table),
      handle_(handle),
      destroy_(destroy),
      options_(options),
      cache_(static_cast<std::size_t>(options.cache_bytes)) {}

ChannelView::~ChannelView() { dbclose(db_); }

void ChannelView::start() {
  try {
    for (int i = 0; i < options_.threads; i++) {
      readers_.emplace_back([this] { read_chunks(); });
    }
    table_thread_ = std::thread([this] { follow_table(); });
    teller_ = std::thread([this] { tell(); });
  } catch (...) {
    close();
    throw;
  }
}

bool ChannelView::close() {
  {
    const Lock lock(mutex_);
    stop_ = true;
    reader_work_.notify_all();
    table_work_.notify_all();
    teller_work_.notify_all();
    progress_.notify_all();
    if (teller_.get_id() == std::this_thread::get_id()) {
      deleted_by_teller_ = true;
      return false;
    }
  }
  for (std::thread *thread : {&table_thread_, &teller_}) {
    if (thread->joinable()) thread->join();
  }
  for (std::thread &reader : readers_) reader.join();
  readers_.clear();
  return true;
}

void ChannelView::set_channels(std::vector<std::string> keys) {
  std::vector<Channel> fresh(keys.size());
  std::unordered_map<std::string, std::vector<std::size_t>> by_key;
  for (std::size_t i = 0; i < keys.size(); i++) {
    by_key[keys[i]].push_back(i);
    fresh[i].key = std::move(keys[i]);
  }
  const Lock lock(mutex_);
  /* A channel that stays in the list keeps its rows. */
  for (Channel &channel : fresh) {
    const auto old = by_key_.find(channel.key);
    if (old != by_key_.end()) channel = channels_[old->second.front()];
  }
  channels_ = std::move(fresh);
  by_key_ = std::move(by_key);
  list_number_++;
  first_unknown_ = first_narrow_ = 0;
  dirty_.assign(channels_.size(), 0);
  any_dirty_ = false;
  replan();
}

void ChannelView::set_window(const Window &window) {
  const Lock lock(mutex_);
  window_ = window;
  first_unknown_ = first_narrow_ = 0;
  for (Channel &channel : channels_) {
    channel.samples_planned = channel.samples_asked;
    channel.samples_asked = false;
  }
  replan();
}

std::unique_ptr<Answer> ChannelView::get(int number, int what, bool calibrated) {
  static constexpr char kSelf[] = "ksscv_get";
  auto answer = std::make_unique<Answer>();
  answer->what = what;
  std::optional<EnvelopeMaker> envelope;
  std::optional<SeriesMaker> series;
  bool announced = false, coming = false, failed = false;
  std::string &text = answer->text;
  const auto tell_trouble = [&](const std::string &message) {
    failed = true;
    if (text.empty()) text = message;
  };
  Lock lock(mutex_);
  if (!window_) return fail(kSelf, "The view has no window");
  if (number < 0 || static_cast<std::size_t>(number) >= channels_.size()) {
    return fail(kSelf, "The view has no channel %d", number);
  }
  const Window window = *window_;
  Channel &channel = channels_[static_cast<std::size_t>(number)];
  if (what == KSSCV_SAMPLES) {
    series.emplace(window, calibrated);
    channel.samples_asked = true;
    if (!channel.samples_planned) {
      channel.samples_planned = true;
      plan_soon();
    }
  } else {
    envelope.emplace(window, calibrated);
  }
  const bool refused = channel.refused || (series && channel.samples_refused);
  coming = !channel.knows(window) && table_error_.empty();
  if (coming) channel.said_unknown = true;
  for (auto piece = first_piece(channel.pieces, window.tstart);
       piece != channel.pieces.end(); ++piece) {
    CachedSegment &segment = *piece->segment;
    const SampleRange range = range_in(*piece, window.tstart, window.tend);
    if (range.empty()) {
      if (segment.time_of(piece->first) >= window.tend) break;
      continue;
    }
    announced = true;
    const ColumnPlan plan(segment, window);
    const bool raw = series || plan.need == kAllSamples;
    const SampleRange chunks =
        raw ? chunks_of(segment, range, 0)
            : chunks_of(segment, blocks_for(*piece, range, plan.level), plan.level);
    if (series ? series->add(*piece) : envelope->add(*piece)) {
      const unsigned need = series ? unsigned{kAllSamples} : plan.need;
      for (std::int64_t i = chunks.first; i < chunks.end; i++) {
        if (!segment.lacks(i, need)) continue;
        if (segment.failed(i)) {
          tell_trouble(segment.message);
        } else if (!refused) {
          coming = true;
        }
      }
    }
    if (plan.need != kCoarseOnly || series) {
      cache_.touch(segment, chunks.first, chunks.end);
    }
  }
  for (const Fault &fault : channel.faults) {
    if (fault.from >= window.tend || fault.to < window.tstart) continue;
    tell_trouble(fault.message);
  }
  if (refused) tell_trouble(too_small());
  if (!table_error_.empty()) tell_trouble(table_error_);
  answer->state = coming      ? KSSCV_COMING
                  : failed    ? KSSCV_ERROR
                  : announced ? KSSCV_COMPLETE
                              : KSSCV_NOTHING;
  (coming ? counts_.misses : counts_.hits)++;
  lock.unlock();

  const bool lacks_calib = series ? series->lacks_calib() : envelope->lacks_calib();
  if (lacks_calib && text.empty()) text = "Rows without calib are left out";
  if (envelope) envelope->finish(*answer);
  if (series && !series->finish(*answer)) {
    answer->state = KSSCV_ERROR;
    text = "More than " + std::to_string(KSSCV_MAX_SAMPLES) +
           " samples in the window: ask for the envelope";
  }
  answer->publish();
  return answer;
}

void ChannelView::refresh() {
  const Lock lock(mutex_);
  look_asked_ = true;
  table_work_.notify_one();
}

int ChannelView::wait(double seconds) {
  static constexpr char kSelf[] = "ksscv_wait";
  Lock lock(mutex_);
  if (teller_.get_id() == std::this_thread::get_id()) {
    return fail(kSelf, "Called from the callback");
  }
  if (!window_) return fail(kSelf, "The view has no window");
  constexpr double kLongest = 1e9;  // s
  const double pause = seconds > 0 ? std::min(seconds, kLongest) : 0.0;
  const auto end =
      Clock::now() + std::chrono::microseconds(static_cast<std::int64_t>(1e6 * pause));
  const auto settled = [this] { return stop_ || window_settled(); };
  if (!progress_.wait_until(lock, end, settled)) return 0;
  if (stop_) return fail(kSelf, "The view is being closed");
  return 1;
}

ksscv_counts ChannelView::counters() {
  const Lock lock(mutex_);
  ksscv_counts counts = counts_;
  counts.evictions = cache_.evictions();
  counts.cache_bytes = static_cast<long>(cache_.held());
  counts.cache_bound = static_cast<long>(cache_.bound());
  counts.queue = lacking();
  counts.reading = reading_;
  counts.segments = static_cast<long>(cache_.segments());
  return counts;
}

}  // namespace ksutil::scv
