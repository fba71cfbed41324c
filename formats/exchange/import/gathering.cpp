#include "formats/exchange/import/gathering.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

#include "formats/exchange/import/record_bytes.h"

namespace ksutil::exchange {
namespace {

constexpr std::size_t kMostEvents = 0xfffffffe;
constexpr std::size_t kMostEventBytes = 0xfffffffe;

std::string temporary_folder() {
  const char *folder = ::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

}  // namespace

std::uint64_t hash_of(std::string_view text) {
  std::uint64_t hash = 14695981039346656037ULL;
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  }
  return hash;
}

bool Gathering::fail(const char *what) {
  problem_ = std::string(what) + " a temporary file in " + temporary_folder() + ": " +
             std::strerror(errno);
  return false;
}

bool Gathering::flush() {
  if (!file_) {
    std::string name = temporary_folder() + "/ksimport-XXXXXX";
    file_ = FileHandle(::mkostemp(name.data(), O_CLOEXEC));
    if (!file_) return fail("cannot make");
    ::unlink(name.c_str());
  }
  const ssize_t written =
      write_at(file_.get(), buffer_.data(), buffer_.size(), buffer_at_);
  if (written != static_cast<ssize_t>(buffer_.size())) return fail("cannot write");
  buffer_at_ += written;
  buffer_.clear();
  return true;
}

bool Gathering::put(std::string_view bytes, std::int64_t &at) {
  if (buffer_.size() + bytes.size() > kInMemory && !flush()) return false;
  at = buffer_at_ + static_cast<std::int64_t>(buffer_.size());
  buffer_ += bytes;
  return true;
}

bool Gathering::read(const Entry &entry, std::string &bytes) {
  if (entry.at >= buffer_at_) {
    bytes.assign(buffer_, static_cast<std::size_t>(entry.at - buffer_at_), entry.size);
    return true;
  }
  bytes.resize(entry.size);
  return read_at(file_.get(), bytes.data(), bytes.size(), entry.at) ==
             static_cast<ssize_t>(bytes.size()) ||
         fail("cannot read");
}

/* The slot of an id: its own, or the free one where it belongs.  Ids are compared, not
 * only their hashes. */
bool Gathering::find(std::string_view id, std::uint64_t hash, std::size_t &slot) {
  const std::size_t mask = slots_.size() - 1;
  for (slot = static_cast<std::size_t>(hash >> 20) & mask; slots_[slot] != 0;
       slot = (slot + 1) & mask) {
    const Entry &entry = entries_[slots_[slot] - 1];
    if (entry.hash != hash) continue;
    if (!read(entry, found_)) return false;
    if (id_of(found_) == id) return true;
  }
  return true;
}

void Gathering::grow() {
  slots_.assign(std::max<std::size_t>(1024, slots_.size() * 2), 0);
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t i = 0; i < entries_.size(); i++) {
    std::size_t slot = static_cast<std::size_t>(entries_[i].hash >> 20) & mask;
    while (slots_[slot] != 0) slot = (slot + 1) & mask;
    slots_[slot] = static_cast<std::uint32_t>(i + 1);
  }
}

void Gathering::look_at(const Event &event) {
  needs_.picks = needs_.picks || !event.picks.empty();
  for (const Pick &pick : event.picks) {
    needs_.bare_picks = needs_.bare_picks || pick.id.empty();
    needs_.networks = needs_.networks || !pick.at.network.empty();
  }
  for (const Origin &origin : event.origins) {
    needs_.bare_origins =
        needs_.bare_origins || (event.origins.size() > 1 && origin.id.empty());
    needs_.tensors = needs_.tensors || !origin.tensors.empty();
    needs_.associations = needs_.associations || !origin.associations.empty();
    needs_.station_magnitudes =
        needs_.station_magnitudes || !origin.station_magnitudes.empty();
    for (const Magnitude &magnitude : origin.magnitudes) {
      needs_.magnitude_ids = needs_.magnitude_ids || !magnitude.id.empty();
    }
    for (const StationMagnitude &magnitude : origin.station_magnitudes) {
      needs_.networks = needs_.networks || !magnitude.at.network.empty();
    }
  }
}

bool Gathering::add(const Event &event) {
  if (entries_.size() * 4 >= slots_.size() * 3) {
    if (entries_.size() >= kMostEvents) {
      problem_ = "there are too many events for one import";
      return false;
    }
    grow();
  }
  const std::uint64_t hash = hash_of(event.id);
  std::size_t slot = 0;
  if (!find(event.id, hash, slot)) return false;
  const bool known = slots_[slot] != 0;
  if (known) {
    superseded_++;
    if (entries_[slots_[slot] - 1].updated > event.updated) return true;
  }
  look_at(event);
  bytes_.clear();
  put_event(event, bytes_);
  if (bytes_.size() > kMostEventBytes) {
    problem_ = "the event " + event.id + " takes too many bytes";
    return false;
  }
  Entry entry{hash,
              preferred_origin(event).time,
              event.updated,
              event.line,
              0,
              static_cast<std::uint32_t>(bytes_.size())};
  if (!put(bytes_, entry.at)) return false;
  if (known) {
    entries_[slots_[slot] - 1] = entry;
  } else {
    entries_.push_back(entry);
    slots_[slot] = static_cast<std::uint32_t>(entries_.size());
  }
  return true;
}

bool Gathering::contains(const std::string &id) {
  std::size_t slot = 0;
  return !slots_.empty() && find(id, hash_of(id), slot) && slots_[slot] != 0;
}

std::vector<std::uint32_t> Gathering::by_time() const {
  std::vector<std::uint32_t> order(entries_.size());
  std::iota(order.begin(), order.end(), 0U);
  std::sort(order.begin(), order.end(), [this](std::uint32_t a, std::uint32_t b) {
    const Entry &x = entries_[a], &y = entries_[b];
    return x.time != y.time ? x.time < y.time : x.line < y.line;
  });
  return order;
}

bool Gathering::get(std::size_t index, Event &event) {
  if (!read(entries_[index], bytes_)) return false;
  return get_event(bytes_, event) || fail("cannot understand");
}

}  // namespace ksutil::exchange
