/* ksdsseis_samples: reads the samples of a data set and writes them to SAC files. */
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>

#include "formats/kssac.h"
#include "platform/clock/clock.h"
#include "platform/elog/failure.h"
#include "platform/stock/owners.h"
#include "platform/trace/segment.h"
#include "platform/trace/trace.h"
#include "waveforms/dataset/internal/data_set.h"

using namespace ksutil;
using namespace ksutil::dataset;

namespace {

constexpr char kRead[] = "ksdsseis_read";
constexpr char kWrite[] = "ksdsseis_write_sac";
constexpr double kMostSamples = 250e6;

struct FreeVector {
  void operator()(ksvector2 *vector) const { ksvector2_free_vector(vector); }
};
using VectorPtr = std::unique_ptr<ksvector2, FreeVector>;

struct FreeSac {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};
using SacPtr = std::unique_ptr<KSSac, FreeSac>;

/* The vector of a channel; null with messages. */
ksvector2 *read_vector(const char *who, const ksdsseis &set, const Channel &channel,
                       char *tag) {
  /* Refused before anything is read: rows may promise any number of samples. */
  const ksdsseis_channel &of = channel.description;
  double begin = 1e300, end = -1e300;
  for (const WaveformRow &row : channel.rows) {
    if (!same_samprate(row.segment.samprate, of.samprate)) continue;
    begin = std::min(begin, row.time());
    end = std::max(end, row.endtime());
  }
  const double nsamp = (end - begin) * of.samprate + 1.0;
  if (!(nsamp <= kMostSamples)) {
    return fail(who, "%s %s has %.12g samples from the first to the last, too many",
                of.sta, of.chan, nsamp);
  }
  std::vector<Segment> segments;
  if (!read_channel(who, set, channel, true, segments)) return nullptr;
  ksvector2 *const vector =
      ksvector2_create_from_segments(segments.data(), static_cast<int>(segments.size()),
                                     channel_name(of).c_str(), tag);
  if (vector == nullptr) fail(who, "ksvector2_create_from_segments() error");
  return vector;
}

/* A text that can be part of the name of a file. */
std::string file_part(std::string text) {
  for (char &c : text) {
    if (c == '/' || static_cast<unsigned char>(c) <= ' ') c = '_';
  }
  return text;
}

/* NET.STA.LOC.CHAN.YYYYDDD.hhmmss.mmm.sac of the first sample. */
std::string file_name(const ksdsseis_channel &channel, double time) {
  /* Day and time of day are those of one number. */
  time = std::round(time * 1000.0) / 1000.0;
  const std::string text = time_text(time, 3);  // 2009-09-04T01:02:03.004
  const std::string of_day = text.substr(text.find('T') + 1);
  return file_part(channel_name(channel)) + "." + std::to_string(yearday(time)) + "." +
         of_day.substr(0, 2) + of_day.substr(3, 2) + of_day.substr(6) + ".sac";
}

/* Writes the channels of one call. */
class SacWriter {
 public:
  SacWriter(const char *dir, Dbptr origin, bool replace)
      : dir_(dir), origin_(origin), replace_(replace) {}

  bool write(const ksdsseis &set, const Channel &channel) {
    const VectorPtr vector(read_vector(kWrite, set, channel, nullptr));
    if (vector == nullptr) return false;
    const auto nsamp = static_cast<std::size_t>(vector->npts);
    for (std::size_t at = 0; at < nsamp;) {
      if (is_gap_sample(vector->data[at])) {
        ++at;
        continue;
      }
      std::size_t end = at;
      while (end < nsamp && !is_gap_sample(vector->data[end])) ++end;
      if (!write_stretch(channel.description, *vector, at, end)) return false;
      at = end;
    }
    return true;
  }
  const std::vector<std::string> &paths() const { return paths_; }

 private:
  bool write_stretch(const ksdsseis_channel &channel, const ksvector2 &vector,
                     std::size_t begin, std::size_t end) {
    std::vector<float> samples(end - begin);
    std::transform(vector.data + begin, vector.data + end, samples.begin(),
                   [](double sample) { return static_cast<float>(sample); });
    const double time = vector.time + static_cast<double>(begin) * vector.dt;
    const SacPtr kssac(kssac_create(nullptr, nullptr));
    if (kssac == nullptr || !fill_header(channel, kssac.get()) ||
        kssac_putdata_kssac(kssac.get(), static_cast<long>(samples.size()),
                            samples.data(), channel.segtype, time,
                            channel.samprate) != 0) {
      return false;
    }
    /* After the samples: the time of the origin counts from the reference time. */
    if (kssac_putevent_kssac(kssac.get(), dbinvalid(), origin_) != 0) return false;
    return write_file(kssac.get(), std::string(dir_) + "/" + file_name(channel, time));
  }

  static bool fill_header(const ksdsseis_channel &from, KSSac *kssac) {
    const auto text = [](const char *code) { return *code == '\0' ? nullptr : code; };
    const auto metres = [](double km, double null) {
      return km == null ? -12345.0 : 1000.0 * km;
    };
    const auto degrees = [](double value, double null) {
      return value == null ? -12345.0 : value;
    };
    const char *const sta = from.seedsta[0] != '\0' ? from.seedsta : from.sta;
    const char *const chan = from.seedchan[0] != '\0' ? from.seedchan : from.chan;
    return kssac_puthdr_kssac(
               kssac, "KSTNM", sta, "KCMPNM", chan, "KNETWK", text(from.net), "KHOLE",
               text(from.loc), "STLA", degrees(from.lat, -999.0), "STLO",
               degrees(from.lon, -999.0), "STEL", metres(from.elev, -999.0), "STDP",
               metres(from.edepth, -1.0), "CMPAZ", degrees(from.hang, -1.0), "CMPINC",
               degrees(from.vang, -1.0), static_cast<char *>(nullptr)) == 0;
  }

  bool write_file(KSSac *kssac, const std::string &path) {
    if (!written_.insert(path).second) {
      return fail(kWrite, "%s is the file of another stretch too", path.c_str());
    }
    if (!replace_ && ::access(path.c_str(), F_OK) == 0) {
      return fail(kWrite, "%s is there already", path.c_str());
    }
    const std::string beside = path + "." + std::to_string(::getpid()) + ".new";
    if (kssac_write_to_file_kssac(kssac, beside.c_str()) != 0) {
      ::unlink(beside.c_str());
      return fail(kWrite, "kssac_write_to_file_kssac() error");
    }
    if (std::rename(beside.c_str(), path.c_str()) != 0) {
      fail_errno(kWrite, "rename(%s) error", path.c_str());
      ::unlink(beside.c_str());
      return false;
    }
    paths_.push_back(path);
    return true;
  }

  const char *dir_;
  const Dbptr origin_;
  const bool replace_;
  std::set<std::string> written_;
  std::vector<std::string> paths_;
};

}  // namespace

namespace ksutil::dataset {

bool read_channel(const char *who, const ksdsseis &set, const Channel &channel,
                  bool for_vector, std::vector<Segment> &segments) {
  std::vector<const WaveformRow *> rows;
  for (const WaveformRow &row : channel.rows) {
    if (!for_vector ||
        same_samprate(row.segment.samprate, channel.description.samprate)) {
      rows.push_back(&row);
    }
  }
  if (for_vector) {
    /* What is loaded later lies on top. */
    std::stable_sort(rows.begin(), rows.end(), [](const auto *a, const auto *b) {
      if (a->lddate != b->lddate) return a->lddate < b->lddate;
      return a->record.record < b->record.record;
    });
  }
  std::vector<Segment> found;
  for (const WaveformRow *const row : rows) {
    Segment segment;
    if (read_segment(row->record, set.tstart, set.tend, segment)) {
      /* Rates that differ by rounding are one clock. */
      if (for_vector) segment.samprate = channel.description.samprate;
      found.push_back(std::move(segment));
    }
  }
  if (found.empty()) {
    return fail(who, "cannot read any samples of %s %s", channel.description.sta,
                channel.description.chan);
  }
  segments = std::move(found);
  return true;
}

}  // namespace ksutil::dataset

ksvector2 *ksdsseis_read(ksdsseis *set, int channel, char *tag) {
  if (tag != nullptr) *tag = '\0';
  return at_boundary(kRead, [&]() -> ksvector2 * {
    const Channel *const found = find_channel(kRead, set, channel);
    return found == nullptr ? nullptr : read_vector(kRead, *set, *found, tag);
  });
}

int ksdsseis_read_all(ksdsseis *set, Tbl **tags) {
  constexpr char kSelf[] = "ksdsseis_read_all";
  return at_boundary(kSelf, [&]() -> int {
    if (set == nullptr || tags == nullptr) return fail(kSelf, "No data set given");
    std::vector<std::string> found;
    int read = 0;
    for (const Channel &channel : set->channels) {
      char tag[KS_TAG_SIZE] = "";
      if (read_vector(kSelf, *set, channel, tag) != nullptr) ++read;
      found.emplace_back(tag);
    }
    *tags = from_texts(found).release();
    return read;
  });
}

int ksdsseis_read_segments(ksdsseis *set, int channel, std::vector<Segment> &segments) {
  constexpr char kSelf[] = "ksdsseis_read_segments";
  return at_boundary(kSelf, [&]() -> int {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return -1;
    return read_channel(kSelf, *set, *found, false, segments) ? 0 : -1;
  });
}

int ksdsseis_write_sac(ksdsseis *set, int channel, const char *dir, Dbptr origin,
                       int replace, Tbl **paths) {
  return at_boundary(kWrite, [&]() -> int {
    if (set == nullptr || dir == nullptr)
      return fail(kWrite, "No data set or folder given");
    SacWriter writer(dir, origin, replace != 0);
    bool good = true;
    if (channel >= 0) {
      const Channel *const found = find_channel(kWrite, set, channel);
      if (found == nullptr) return -1;
      good = writer.write(*set, *found);
    } else {
      for (const Channel &each : set->channels) good = writer.write(*set, each) && good;
    }
    if (paths != nullptr) *paths = from_texts(writer.paths()).release();
    return good ? static_cast<int>(writer.paths().size()) : -1;
  });
}
