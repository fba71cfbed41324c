/* Gathering: all events of an import, in the order of their origin times, each in its
 * latest revision.
 *
 * The events lie as bytes in memory up to kInMemory, and beyond that in a temporary file
 * (in TMPDIR, else /tmp) that has no name.  Besides, memory holds 48 bytes for each event
 * and 4 to 8 for the table that finds its id. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_GATHERING_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_GATHERING_H

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/records.h"
#include "platform/stock/files.h"

namespace ksutil::exchange {

/* FNV-1a. */
std::uint64_t hash_of(std::string_view text);

/* Contents of the events that need tables besides event, origin, origerr and netmag. */
struct Needs {
  bool picks = false;
  bool bare_picks = false;  // that have no id
  bool associations = false;
  bool station_magnitudes = false;
  bool networks = false;  // of station channels
  bool tensors = false;
  bool magnitude_ids = false;
  bool bare_origins = false;  // several in one event, without ids
};

class Gathering {
 public:
  static constexpr std::size_t kInMemory = std::size_t{1} << 24;

  /* Adds an event.  Of two with the same id the one with the later update stays, and of
   * equal updates the later one in the input.  False, with problem() set, when the
   * temporary file cannot be written. */
  bool add(const Event &event);
  const std::string &problem() const { return problem_; }

  /* Events that have gone because of a later revision. */
  std::int64_t superseded() const { return superseded_; }
  std::size_t size() const { return entries_.size(); }
  /* Whether an event has this id of its own; false also when that cannot be read. */
  bool contains(const std::string &id);
  const Needs &needs() const { return needs_; }

  /* The events in the order of their origin times; equal times in the order of lines. */
  std::vector<std::uint32_t> by_time() const;

  /* An event; false, with problem() set, when it cannot be read back. */
  bool get(std::size_t index, Event &event);

 private:
  struct Entry {
    std::uint64_t hash;
    double time, updated;
    std::int64_t line;
    std::int64_t at;  // of its bytes
    std::uint32_t size;
  };

  bool put(std::string_view bytes, std::int64_t &at);
  bool flush();
  bool read(const Entry &entry, std::string &bytes);
  bool find(std::string_view id, std::uint64_t hash, std::size_t &slot);
  void grow();
  void look_at(const Event &event);
  bool fail(const char *what);

  std::deque<Entry> entries_;
  std::vector<std::uint32_t> slots_;  // index of an entry + 1; 0: free
  std::int64_t superseded_ = 0;
  Needs needs_;
  std::string buffer_;          // the bytes from buffer_at_ on
  std::int64_t buffer_at_ = 0;  // bytes that are in the file
  FileHandle file_;
  std::string bytes_, found_, problem_;
};

}  // namespace ksutil::exchange
#endif
