/* RowIndex: finds the rows of wfdisc of a station channel that lie in a span of time.
 *
 * It has 24 bytes for each row, and a text for each channel of the table.
 * Threads: belongs to the thread that reads the table. */
#ifndef KSUTIL_WAVEFORMS_VIEW_INTERNAL_ROW_INDEX_H
#define KSUTIL_WAVEFORMS_VIEW_INTERNAL_ROW_INDEX_H

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/db/snapshot.h"

namespace ksutil::scv {

/* The key of a channel: "sta chan". */
std::string channel_key(const std::string &sta, const std::string &chan);

class RowIndex {
 public:
  /* Goes on to another snapshot of the table; null: the table has no rows.
   *
   * go_on     asked now and then
   * changed   out: keys of channels whose rows changed; meaningless when all is set
   * all       out: any channel may have changed
   * False when go_on was false or rows could not be read for now: the index is empty then. */
  bool follow(const std::shared_ptr<const db::Snapshot> &rows,
              const std::function<bool()> &go_on, std::set<std::string> &changed,
              bool &all);

  /* The numbers of the rows with samples from t0 to t1, ascending. */
  std::vector<long> find(const std::string &key, double t0, double t1);
  /* The number of the first row of a channel whose time cannot be read; -1 for none. */
  long bad_row(const std::string &key) const;

 private:
  struct Entry {
    double time, end;  // of the first and the last sample
    long record;
  };
  struct Channel {
    std::vector<Entry> entries;
    std::vector<double> latest_end;  // of entries 0 ... i; empty: to be sorted first
    std::set<long> bad;
  };
  struct Columns;

  bool add(const Columns &columns, const db::Snapshot &rows, long record,
           std::string *key);
  void remove(const std::string &key, const std::vector<long> &records);

  std::shared_ptr<const db::Snapshot> rows_;
  std::unordered_map<std::string, Channel> channels_;
};

}  // namespace ksutil::scv
#endif
