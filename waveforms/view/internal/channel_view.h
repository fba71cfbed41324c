/* ChannelView: is the engine behind the functions of ksscv.h.
 *
 * Threads: readers read chunks of files into the cache; the table thread has the database
 * handle, follows the table and looks at the files; the teller runs the callback.
 * One lock guards all members but those that are marked.  It is a leaf and held for short
 * work in memory only: no thread reads a file, uses the database, runs the callback or copies
 * samples under it.
 *
 * A plan (channel_view_planning.cpp) says which chunks the window needs.  Whenever the window,
 * the channels or the rows change a new plan replaces it, and readers go through the plan
 * from its beginning: there is no queue that could hold chunks of an earlier window.
 * A plan costs time for each channel of the list, so that rows which are found one channel
 * after the other share plans: see plan_soon(). */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_CHANNEL_VIEW_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_CHANNEL_VIEW_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "waveforms/ksscv.h"
#include "waveforms/view/internal/answer.h"
#include "waveforms/view/internal/pieces.h"
#include "waveforms/view/internal/row_index.h"
#include "waveforms/view/internal/segment_cache.h"

namespace ksutil::scv {

/* How long a thread waits that found no memory. */
inline constexpr std::chrono::milliseconds kMemoryPause{100};

/* A station channel of the list, with its rows around the window. */
struct Channel {
  std::string key;
  std::vector<std::shared_ptr<CachedSegment>> segments;
  std::vector<Piece> pieces;  // of the segments; ascending in time
  std::vector<Fault> faults;
  /* The rows are known from one time to the other. */
  double known_from = std::numeric_limits<double>::infinity();
  double known_to = -std::numeric_limits<double>::infinity();
  bool stale = true;     // the rows are to be looked up again
  bool refused = false;  // the window does not fit into the cache
  /* An answer said that rows are still to be looked up: the callback must follow, even when
   * they turn out to be as before. */
  bool said_unknown = false;
  bool samples_asked = false, samples_planned = false;
  bool samples_refused = false;  // the envelope fits, but not the samples

  bool knows(const Window &window) const {
    return !stale && known_from <= window.tstart && known_to >= window.tend;
  }
};

class ChannelView {
 public:
  using Lock = std::unique_lock<std::mutex>;

  /* Owns `db`, a handle of its own, from now on; `table` is its wfdisc.  `destroy` deletes
   * the handle with this object. */
  ChannelView(ksscv *handle, void (*destroy)(ksscv *), Dbptr db, Dbptr table,
              const ksscv_options &options);
  ~ChannelView();  // see close()
  ChannelView(const ChannelView &) = delete;
  ChannelView &operator=(const ChannelView &) = delete;

  /* Starts the threads; throws std::system_error. */
  void start();
  /* Ends the threads.  True: the view may be deleted now.  False: this is the teller, which
   * deletes the view itself when the callback has returned. */
  bool close();

  void set_channels(std::vector<std::string> keys);
  void set_window(const Window &window);
  /* Null with a message. */
  std::unique_ptr<Answer> get(int channel, int what, bool calibrated);
  void set_callback(ksscv_callback callback, void *context);
  void refresh();
  int wait(double seconds);
  ksscv_counts counters();

 private:
  /* Chunks first ... end - 1 of a segment, and what is needed of them. */
  struct Range {
    std::shared_ptr<CachedSegment> segment;
    std::int64_t first, end;
    unsigned need;
  };
  /* The next chunk that a reader looks at. */
  struct Cursor {
    int phase = 0;  // 0: the window, 1: its neighbours, 2: nothing is left
    std::size_t range = 0;
    std::int64_t chunk = -1;  // -1: the first of the range
  };
  struct Read;      // a chunk that is being read
  struct FreshRow;  // a row as the table and the file system have it now
  struct Work;      // rows of a channel that the table thread looks up

  // planning
  void replan();
  /* Plans again, at once or, for long lists, within a few times the length of a plan. */
  void plan_soon();
  void make_plan();
  /* Bytes of the cache that a plan may fill.  A plan of at most as many always finds room
   * when no chunk is being read. */
  std::size_t room_for_plan() const;
  void plan_window(const Window &window, std::size_t &budget);
  std::string too_small() const;
  bool plan_channel(const Channel &channel, bool samples, double from, double to,
                    std::vector<Range> &ranges, std::size_t &budget) const;
  void mark_wants(std::vector<Range> &ranges, Want CachedSegment::*want);
  bool window_settled() const;
  long lacking() const;

  // readers
  void read_chunks();
  void read_next();
  bool next_read(Read &read);
  void perform(Read &read) const;
  void publish(Read &read);

  // table thread
  void follow_table();
  void follow_once();
  void look(Lock &lock);
  void look_at_table();
  void look_at_files();
  bool next_work(Work &work);
  bool look_up(Work &work);
  void apply(Work &work);
  bool apply_row(const FreshRow &fresh, Channel &channel, bool &changed);

  // teller
  void tell();
  void tell_once();
  void mark_dirty(std::size_t channel);
  void mark_dirty(const CachedSegment &segment);
  void mark_all_dirty();
  void mark_stale(std::size_t channel);

  // of the table thread alone
  const Dbptr db_, table_;
  RowIndex index_;
  Clock::time_point next_look_ = Clock::now();
  std::shared_ptr<const db::Snapshot> rows_;

  ksscv *const handle_;
  void (*const destroy_)(ksscv *);
  const ksscv_options options_;

  std::mutex mutex_;
  std::condition_variable reader_work_, table_work_, teller_work_, progress_;
  std::atomic<bool> stop_{false};  // set under the lock, read anywhere
  bool deleted_by_teller_ = false;
  SegmentCache cache_;
  std::vector<Channel> channels_;
  std::unordered_map<std::string, std::vector<std::size_t>> by_key_;  // of channels_
  long list_number_ = 0;  // of the list of channels
  /* Before the first, all channels know the window; before the second, its neighbours too.
   * So a look for work costs nothing for the channels that are done. */
  std::size_t first_unknown_ = 0, first_narrow_ = 0;
  std::optional<Window> window_;

  long plan_ = 0;
  bool plan_due_ = false;             // what the plan was made for has changed
  Clock::time_point next_plan_ = {};  // no earlier, unless it cannot wait
  std::vector<Range> now_, ahead_;
  Cursor cursor_;
  Clock::time_point next_retry_ = Clock::time_point::max();
  long reading_ = 0, reading_now_ = 0;  // chunks; those of phase 0

  bool look_asked_ = true, looking_ = false;
  std::string table_error_;
  std::size_t next_file_ = 0;  // where the next look at files begins

  ksscv_callback callback_ = nullptr;
  void *context_ = nullptr;
  std::vector<char> dirty_;  // by channel
  bool any_dirty_ = false;

  ksscv_counts counts_{};
  std::vector<std::thread> readers_;
  std::thread table_thread_, teller_;
};

}  // namespace ksutil::scv
#endif
