#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench/loaders.h"
#include "platform/db/schema.h"

namespace ksutil::bench {
namespace {

/* One mapped table file with the places of the fields that the join needs. */
class MappedTable {
 public:
  MappedTable(const std::string &path, const db::Relation &relation)
      : relation_(relation), stride_(static_cast<std::size_t>(relation.width) + 1) {
    const int fd = open((path + "." + relation.name).c_str(), O_RDONLY);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0) throw std::runtime_error("no table");
    bytes_ = static_cast<std::size_t>(status.st_size);
    void *mapped = mmap(nullptr, bytes_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED) throw std::runtime_error("cannot map");
    data_ = static_cast<const char *>(mapped);
  }
  ~MappedTable() { munmap(const_cast<char *>(data_), bytes_); }
  MappedTable(const MappedTable &) = delete;
  MappedTable &operator=(const MappedTable &) = delete;

  long count() const { return static_cast<long>(bytes_ / stride_); }
  std::string_view row(long i) const {
    return {data_ + static_cast<std::size_t>(i) * stride_, stride_};
  }

  template <class T>
  T read(long i, const db::Field &field) const {
    const char *from = row(i).data() + field.offset;
    const char *to = from + field.width;
    while (from < to && *from == ' ') from++;
    T value{};
    std::from_chars(from, to, value);
    return value;
  }
  const db::Field &field(const char *name) const { return *relation_.find(name); }

 private:
  const db::Relation &relation_;
  std::size_t stride_, bytes_ = 0;
  const char *data_ = nullptr;
};

struct Magnitude {
  long recno;
  double magnitude, lddate;
  std::string magtype, text;
};
struct Moment {
  long recno;
  double lddate;
  std::string text;
};
struct Origin {
  long recno, orid;
  double time, lddate;
  std::string text, errors;
  std::vector<Magnitude> magnitudes;
  std::vector<Moment> moments;
};
struct Event {
  long recno, evid, prefor;
  double lddate;
  std::string text;
  std::vector<Origin> origins;
};

/* Row numbers by key, as chains through one array. */
class Chains {
 public:
  Chains(const MappedTable &table, const char *key)
      : next_(static_cast<std::size_t>(table.count())) {
    const db::Field &field = table.field(key);
    heads_.reserve(next_.size());
    for (long i = table.count() - 1; i >= 0; i--) {
      auto [entry, fresh] = heads_.try_emplace(table.read<long>(i, field), -1L);
      next_[static_cast<std::size_t>(i)] = entry->second;
      entry->second = i;
    }
  }
  long first(long key) const {
    const auto entry = heads_.find(key);
    return entry == heads_.end() ? -1 : entry->second;
  }
  long next(long row) const { return next_[static_cast<std::size_t>(row)]; }

 private:
  std::unordered_map<long, long> heads_;
  std::vector<long> next_;
};

}  // namespace

long load_with_floor(const std::string &path) {
  const std::shared_ptr<const db::Schema> schema = db::Schema::load("css3.0");
  const MappedTable event(path, *schema->find("event"));
  const MappedTable origin(path, *schema->find("origin"));
  const MappedTable origerr(path, *schema->find("origerr"));
  const MappedTable netmag(path, *schema->find("netmag"));
  const MappedTable mt(path, *schema->find("mt"));
  const Chains origins(origin, "evid"), errors(origerr, "orid"), mags(netmag, "orid"),
      moments(mt, "orid");

  const db::Field &evid = event.field("evid"), &prefor = event.field("prefor"),
                  &event_lddate = event.field("lddate");
  const db::Field &orid = origin.field("orid"), &time = origin.field("time"),
                  &origin_lddate = origin.field("lddate"), &mb = origin.field("mb"),
                  &ms = origin.field("ms"), &ml = origin.field("ml");
  const db::Field &magnitude = netmag.field("magnitude"),
                  &magtype = netmag.field("magtype"),
                  &mag_lddate = netmag.field("lddate");
  const db::Field &mt_lddate = mt.field("lddate");

  std::vector<Event> list;
  list.reserve(static_cast<std::size_t>(event.count()));
  long count = 0;
  double own = 0.0;
  for (long e = 0; e < event.count(); e++) {
    Event &to = list.emplace_back(Event{e,
                                        event.read<long>(e, evid),
                                        event.read<long>(e, prefor),
                                        event.read<double>(e, event_lddate),
                                        std::string(event.row(e)),
                                        {}});
    for (long o = origins.first(to.evid); o >= 0; o = origins.next(o)) {
      Origin &at = to.origins.emplace_back(Origin{o,
                                                  origin.read<long>(o, orid),
                                                  origin.read<double>(o, time),
                                                  origin.read<double>(o, origin_lddate),
                                                  std::string(origin.row(o)),
                                                  {},
                                                  {},
                                                  {}});
      own += origin.read<double>(o, mb) + origin.read<double>(o, ms) +
             origin.read<double>(o, ml);
      if (const long x = errors.first(at.orid); x >= 0) at.errors = origerr.row(x);
      for (long m = mags.first(at.orid); m >= 0; m = mags.next(m)) {
        const std::string_view type =
            netmag.row(m).substr(static_cast<std::size_t>(magtype.offset), 6);
        at.magnitudes.push_back(Magnitude{
            m, netmag.read<double>(m, magnitude), netmag.read<double>(m, mag_lddate),
            std::string(type.substr(0, type.find(' '))), std::string(netmag.row(m))});
        count++;
      }
      for (long m = moments.first(at.orid); m >= 0; m = moments.next(m)) {
        at.moments.push_back(
            Moment{m, mt.read<double>(m, mt_lddate), std::string(mt.row(m))});
      }
    }
    std::stable_sort(
        to.origins.begin(), to.origins.end(),
        [](const Origin &a, const Origin &b) { return a.lddate < b.lddate; });
  }
  return own < 0.0 ? count : 0;  // every own magnitude is null here, far below zero
}

}  // namespace ksutil::bench
