/* ksdsseis_files: writes the samples of a data set to SAC and miniSEED files. */
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>

#include "formats/kssac.h"
#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/failure.h"
#include "platform/stock/owners.h"
#include "platform/trace/miniseed.h"
#include "platform/trace/segment.h"
#include "platform/trace/trace.h"
#include "waveforms/dataset/internal/data_set.h"

using namespace ksutil;
using namespace ksutil::dataset;

namespace {

namespace fs = std::filesystem;

constexpr int kRecordLength = 512;  // of miniSEED files

struct FreeVector {
  void operator()(ksvector2 *vector) const { ksvector2_free_vector(vector); }
};
using VectorPtr = std::unique_ptr<ksvector2, FreeVector>;

struct FreeSac {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};
using SacPtr = std::unique_ptr<KSSac, FreeSac>;

const char *seed_sta(const ksdsseis_channel &of) {
  return of.seedsta[0] != '\0' ? of.seedsta : of.sta;
}
const char *seed_chan(const ksdsseis_channel &of) {
  return of.seedchan[0] != '\0' ? of.seedchan : of.chan;
}

/* Samples begin ... end - 1 of a vector, without gaps. */
struct Stretch {
  std::size_t begin, end;
};

std::vector<Stretch> stretches_of(const ksvector2 &vector) {
  std::vector<Stretch> found;
  const auto nsamp = static_cast<std::size_t>(vector.npts);
  for (std::size_t at = 0; at < nsamp;) {
    if (is_gap_sample(vector.data[at])) {
      ++at;
      continue;
    }
    const std::size_t begin = at;
    while (at < nsamp && !is_gap_sample(vector.data[at])) ++at;
    found.push_back({begin, at});
  }
  return found;
}

double time_of(const ksvector2 &vector, std::size_t sample) {
  return vector.time + static_cast<double>(sample) * vector.dt;
}

/* Removes a file, if it is there, at the end of the scope. */
class Unlinker {
 public:
  explicit Unlinker(const std::string &path) : path_(path) {}
  ~Unlinker() { ::unlink(path_.c_str()); }
  Unlinker(const Unlinker &) = delete;
  Unlinker &operator=(const Unlinker &) = delete;

 private:
  const std::string &path_;
};

/* Puts the files of one call in their places, each as a whole and none twice. */
class FileSet {
 public:
  FileSet(const char *who, const char *dir, bool replace)
      : who_(who), dir_(dir), replace_(replace) {}

  std::string path_of(const std::string &name) const {
    return (fs::path(dir_) / name).string();
  }
  /* `write` fills the file of the name it is given; false with messages. */
  bool put(const std::string &path,
           const std::function<bool(const std::string &)> &write) {
    if (!written_.insert(path).second) {
      return fail(who_, "%s is the file of another stretch or channel too",
                  path.c_str());
    }
    if (!replace_ && ::access(path.c_str(), F_OK) == 0) return there_already(path);
    const std::string beside = path + "." + std::to_string(::getpid()) + ".new";
    ::unlink(beside.c_str());
    const Unlinker unlinker(beside);
    std::string own = path;
    paths_.reserve(paths_.size() + 1);  // nothing may fail after the file is in place
    if (!write(beside) || !place(beside, path)) return false;
    paths_.push_back(std::move(own));
    return true;
  }
  /* Takes back what was put. */
  void remove() {
    for (const std::string &path : paths_) ::unlink(path.c_str());
    paths_.clear();
  }
  const std::vector<std::string> &paths() const { return paths_; }

 private:
  bool there_already(const std::string &path) const {
    return fail(who_, "%s is there already", path.c_str());
  }
  bool place(const std::string &beside, const std::string &path) const {
    /* A link, unlike a new name, never takes the place of a file that came meanwhile;
     * some file systems have none. */
    if (!replace_) {
      if (::link(beside.c_str(), path.c_str()) == 0) return true;
      if (errno == EEXIST) return there_already(path);
    }
    if (std::rename(beside.c_str(), path.c_str()) == 0) return true;
    return fail_errno(who_, "rename(%s) error", path.c_str());
  }

  const char *const who_;
  const char *const dir_;
  const bool replace_;
  std::set<std::string> written_;
  std::vector<std::string> paths_;
};

/* Writes a vector to SAC files, one for each stretch. */
class SacWriter {
 public:
  /* type: IDEP of the header; factor: to its unit. */
  SacWriter(const char *who, FileSet &files, Dbptr origin)
      : who_(who), files_(files), origin_(origin) {}

  bool write(const ksdsseis_channel &channel, const ksvector2 &vector, const char *type,
             double factor) {
    const auto stretches = stretches_of(vector);
    return std::all_of(stretches.begin(), stretches.end(), [&](const Stretch &each) {
      return write_stretch(channel, vector, each, type, factor);
    });
  }

 private:
  bool write_stretch(const ksdsseis_channel &channel, const ksvector2 &vector,
                     const Stretch &stretch, const char *type, double factor) {
    std::vector<float> samples(stretch.end - stretch.begin);
    std::transform(vector.data + stretch.begin, vector.data + stretch.end,
                   samples.begin(),
                   [&](double sample) { return static_cast<float>(factor * sample); });
    const double time = time_of(vector, stretch.begin);
    const SacPtr kssac(kssac_create(nullptr, nullptr));
    if (kssac == nullptr || !fill_header(channel, kssac.get()) ||
        kssac_putdata_kssac(kssac.get(), static_cast<long>(samples.size()),
                            samples.data(), type, time, 1.0 / vector.dt) != 0) {
      return false;
    }
    /* After the samples: the time of the origin counts from the reference time. */
    if (kssac_putevent_kssac(kssac.get(), dbinvalid(), origin_) != 0) return false;
    const std::string path =
        files_.path_of(waveform_file_name(channel_name(channel), time, "sac"));
    return files_.put(path, [&](const std::string &to) {
      return kssac_write_to_file_kssac(kssac.get(), to.c_str()) == 0 ||
             bool(fail(who_, "kssac_write_to_file_kssac() error"));
    });
  }

  static bool fill_header(const ksdsseis_channel &from, KSSac *kssac) {
    const auto text = [](const char *code) { return *code == '\0' ? nullptr : code; };
    const auto metres = [](double km, double null) {
      return km == null ? -12345.0 : 1000.0 * km;
    };
    const auto degrees = [](double value, double null) {
      return value == null ? -12345.0 : value;
    };
    return kssac_puthdr_kssac(
               kssac, "KSTNM", seed_sta(from), "KCMPNM", seed_chan(from), "KNETWK",
               text(from.net), "KHOLE", text(from.loc), "STLA",
               degrees(from.lat, -999.0), "STLO", degrees(from.lon, -999.0), "STEL",
               metres(from.elev, -999.0), "STDP", metres(from.edepth, -1.0), "CMPAZ",
               degrees(from.hang, -1.0), "CMPINC", degrees(from.vang, -1.0),
               static_cast<char *>(nullptr)) == 0;
  }

  const char *const who_;
  FileSet &files_;
  const Dbptr origin_;
};

/* What a row of wfdisc says of samples beside their time. */
struct Calibration {
  double calib = 0.0, calper = -1.0;
  std::string segtype;
  bool operator==(const Calibration &) const = default;
};

/* Tells which row each sample of a vector comes from. */
class RowCover {
 public:
  /* rows: in the order in which the vector was filled, the later ones on top. */
  RowCover(const std::vector<const WaveformRow *> &rows, const ksvector2 &vector) {
    owners_[0] = nullptr;
    for (const WaveformRow *const row : rows) {
      const auto begin = std::llround((row->time() - vector.time) / vector.dt);
      paint(begin, begin + row->count, row);
    }
  }
  /* Cuts a stretch where the calibration changes. */
  std::vector<std::pair<Stretch, const WaveformRow *>> cut(
      const Stretch &stretch) const {
    std::vector<std::pair<Stretch, const WaveformRow *>> parts;
    auto owner = std::prev(owners_.upper_bound(static_cast<long>(stretch.begin)));
    for (std::size_t at = stretch.begin; at < stretch.end; ++owner) {
      const auto next = std::next(owner);
      const std::size_t end =
          next == owners_.end()
              ? stretch.end
              : std::min(stretch.end, static_cast<std::size_t>(next->first));
      if (parts.empty() ||
          calibration(owner->second) != calibration(parts.back().second)) {
        parts.push_back({{at, end}, owner->second});
      } else {
        parts.back().first.end = end;
      }
      at = end;
    }
    return parts;
  }
  static Calibration calibration(const WaveformRow *row) {
    if (row == nullptr) return {};
    return {row->segment.calib, row->segment.calper, row->segment.segtype};
  }

 private:
  void split(long at) {
    const auto before = std::prev(owners_.upper_bound(at));
    if (before->first != at) owners_[at] = before->second;
  }
  void paint(long begin, long end, const WaveformRow *row) {
    begin = std::max(begin, 0L);
    if (begin >= end) return;
    split(begin);
    split(end);
    owners_.erase(owners_.lower_bound(begin), owners_.lower_bound(end));
    owners_[begin] = row;
  }

  std::map<long, const WaveformRow *> owners_;  // from this sample on
};

/* A row of wfdisc to be added. */
struct NewRow {
  const Channel *channel;
  const WaveformRow *source;
  std::string path;
  double time, endtime, samprate;
  std::int64_t nsamp, foff;
};

/* Packs samples of a vector as counts where all are whole, else as floats. */
class MiniseedWriter {
 public:
  MiniseedWriter(const char *who, FileSet &files) : who_(who), files_(files) {}

  /* cover: null when no rows are wanted */
  bool write(const Channel &channel, const ksvector2 &vector, const RowCover *cover) {
    const ksdsseis_channel &of = channel.description;
    const auto stretches = stretches_of(vector);
    if (stretches.empty()) {
      return fail(who_, "%s %s has no samples", of.sta, of.chan);
    }
    const std::string path = files_.path_of(waveform_file_name(
        channel_name(of), time_of(vector, stretches.front().begin), "mseed"));
    std::vector<NewRow> rows;
    const bool good = files_.put(path, [&](const std::string &to) {
      for (const Stretch &stretch : stretches) {
        if (cover == nullptr) {
          if (!append(to, of, vector, stretch)) return false;
          continue;
        }
        for (const auto &[part, source] : cover->cut(stretch)) {
          struct stat status {};
          const bool there = ::stat(to.c_str(), &status) == 0;
          if (!append(to, of, vector, part)) return false;
          const double time = time_of(vector, part.begin);
          const auto nsamp = static_cast<std::int64_t>(part.end - part.begin);
          rows.push_back({&channel, source, path, time, time_of(vector, part.end - 1),
                          1.0 / vector.dt, nsamp,
                          there ? std::int64_t{status.st_size} : 0});
        }
      }
      return cover == nullptr || take_times(to, rows);
    });
    if (good) rows_.insert(rows_.end(), rows.begin(), rows.end());
    return good;
  }
  const std::vector<NewRow> &rows() const { return rows_; }

 private:
  bool append(const std::string &path, const ksdsseis_channel &of,
              const ksvector2 &vector, const Stretch &stretch) const {
    MiniseedCodes codes;
    codes.net = of.net;
    codes.sta = seed_sta(of);
    codes.chan = seed_chan(of);
    codes.loc = of.loc;
    const double *const from = vector.data + stretch.begin;
    const double *const to = vector.data + stretch.end;
    Segment segment;
    segment.time = time_of(vector, stretch.begin);
    segment.samprate = 1.0 / vector.dt;
    std::vector<std::int32_t> counts;
    std::vector<float> floats;
    if (std::all_of(from, to, [](double value) {
          return std::abs(value) < 2147483647.0 && value == std::trunc(value);
        })) {
      counts.assign(from, to);
      segment.samples = Segment::Counts(counts);
    } else {
      std::transform(from, to, std::back_inserter(floats),
                     [](double value) { return static_cast<float>(value); });
      segment.samples = Segment::Floats(floats);
    }
    return miniseed_append(path, segment, codes, kRecordLength);
  }

  /* Gives rows the times that an index of the file would give them: those of its records. */
  static bool take_times(const std::string &path, std::vector<NewRow> &rows) {
    MiniseedContents contents;
    if (!miniseed_list(path, contents)) return false;
    for (const MiniseedPiece &piece : contents.pieces) {
      for (NewRow &row : rows) {
        if (row.foff != piece.foff || row.nsamp != piece.nsamp) continue;
        row.time = piece.time;
        row.endtime = piece.endtime;
        row.samprate = piece.samprate;
      }
    }
    return true;
  }

  const char *const who_;
  FileSet &files_;
  std::vector<NewRow> rows_;
};

/* Adds rows of wfdisc in one transaction. */
class RowWriter {
 public:
  RowWriter(const char *who, Dbptr db) : who_(who), db_(db) {
    db_.table = db_.field = dbALL;
    db_.record = dbALL;
  }

  /* Whether the database takes rows; false with a message. */
  bool open() {
    store_ = db::database_store(db_);
    if (store_ == nullptr) return fail(who_, "The database of the rows is not open");
    if (!store_->writable()) {
      return fail(who_, "%s cannot be written", store_->name().c_str());
    }
    db::TableStore *const table = store_->table("wfdisc");
    if (table == nullptr) return fail(who_, "The database has no table wfdisc");
    const std::string &folder = table->directory();
    directory_ = fs::weakly_canonical(folder.empty() ? "." : folder);
    return true;
  }

  bool add(const std::vector<NewRow> &rows) {
    if (rows.empty()) return true;
    const long wfid = db::reserve_ids(db_, "wfid", static_cast<long>(rows.size()));
    if (wfid < 0) return fail(who_, "No ids for rows of wfdisc");
    const double now = std_now();
    return store_->transaction({"wfdisc"}, [&](db::Transaction &step) {
      const db::Relation &layout = step.layout(0);
      std::string text;
      for (std::size_t i = 0; i < rows.size(); ++i) {
        std::string row = db::null_record(layout);
        if (!fill(layout, rows[i], wfid + static_cast<long>(i), now, row)) return false;
        text += row;
      }
      return step.append(0, text) >= 0;
    });
  }

 private:
  bool fill(const db::Relation &layout, const NewRow &from, long wfid, double now,
            std::string &row) const {
    const Calibration calibration = RowCover::calibration(from.source);
    const fs::path path = fs::weakly_canonical(from.path);
    const auto put = [&](const char *name, const auto &value) {
      const db::Field *const field = layout.find(name);
      if (field == nullptr) return true;
      bool fits;
      if constexpr (std::is_same_v<decltype(value), const std::string &>) {
        fits = value.size() <= static_cast<std::size_t>(field->width) &&
               db::write_text(*field, value, row);
      } else if constexpr (std::is_same_v<decltype(value), const double &>) {
        fits = db::write_real(*field, value, row);
      } else {
        fits = db::write_integer(*field, value, row);
      }
      return fits ||
             bool(fail(who_, "%s of %s does not fit wfdisc", name, path.c_str()));
    };
    const ksdsseis_channel &of = from.channel->description;
    return put("sta", std::string(of.sta)) && put("chan", std::string(of.chan)) &&
           put("time", from.time) && put("endtime", from.endtime) &&
           put("jdate", std::int64_t{yearday(from.time)}) && put("nsamp", from.nsamp) &&
           put("samprate", from.samprate) && put("datatype", std::string("sd")) &&
           put("calib", calibration.calib) &&
           (!(calibration.calper > 0.0) || put("calper", calibration.calper)) &&
           (calibration.segtype.empty() || put("segtype", calibration.segtype)) &&
           put("dir", dir_of(path.parent_path())) &&
           put("dfile", path.filename().string()) && put("foff", from.foff) &&
           put("wfid", std::int64_t{wfid}) && put("lddate", now);
  }

  /* From the folder of wfdisc if the file lies below it, else absolute. */
  std::string dir_of(const fs::path &folder) const {
    const fs::path below = folder.lexically_relative(directory_);
    return below.empty() || *below.begin() == ".." ? folder.string() : below.string();
  }

  const char *const who_;
  Dbptr db_;
  db::DatabaseStore *store_ = nullptr;
  fs::path directory_;
};

/* Runs `write` for a channel, or with -1 for all. */
bool for_channels(const char *who, ksdsseis *set, int channel,
                  const std::function<bool(const Channel &)> &write) {
  if (channel >= 0) {
    const Channel *const found = find_channel(who, set, channel);
    return found != nullptr && write(*found);
  }
  bool good = true;
  for (const Channel &each : set->channels) good = write(each) && good;
  return good;
}

int finish(bool good, const FileSet &files, Tbl **paths) {
  if (paths != nullptr) *paths = from_texts(files.paths()).release();
  return good ? static_cast<int>(files.paths().size()) : -1;
}

}  // namespace

int ksdsseis_write_sac(ksdsseis *set, int channel, const char *dir, Dbptr origin,
                       int replace, Tbl **paths) {
  constexpr char kSelf[] = "ksdsseis_write_sac";
  return at_boundary(kSelf, [&]() -> int {
    if (set == nullptr || dir == nullptr) {
      return fail(kSelf, "No data set or folder given");
    }
    FileSet files(kSelf, dir, replace != 0);
    SacWriter writer(kSelf, files, origin);
    const bool good = for_channels(kSelf, set, channel, [&](const Channel &each) {
      const VectorPtr vector(read_vector(kSelf, *set, each, nullptr));
      return vector != nullptr &&
             writer.write(each.description, *vector, each.description.segtype, 1.0);
    });
    return finish(good, files, paths);
  });
}

int ksdsseis_write_miniseed(ksdsseis *set, int channel, const char *dir, Dbptr db,
                            int replace, Tbl **paths) {
  constexpr char kSelf[] = "ksdsseis_write_miniseed";
  return at_boundary(kSelf, [&]() -> int {
    if (set == nullptr || dir == nullptr) {
      return fail(kSelf, "No data set or folder given");
    }
    const bool with_rows = db.database >= 0;
    if (with_rows && replace != 0) {
      return fail(kSelf, "Files with rows are not replaced: rows may point into them");
    }
    RowWriter rows(kSelf, db);
    if (with_rows && !rows.open()) return -1;
    FileSet files(kSelf, dir, replace != 0);
    MiniseedWriter writer(kSelf, files);
    const bool good = for_channels(kSelf, set, channel, [&](const Channel &each) {
      std::vector<const WaveformRow *> used;
      const VectorPtr vector(read_vector(kSelf, *set, each, nullptr, &used));
      if (vector == nullptr) return false;
      if (!with_rows) return writer.write(each, *vector, nullptr);
      const RowCover cover(used, *vector);
      return writer.write(each, *vector, &cover);
    });
    if (with_rows && !rows.add(writer.rows())) {
      files.remove();
      return fail(kSelf, "The rows cannot be added; the files are removed");
    }
    return finish(good, files, paths);
  });
}

int ksdsseis_write_vector(ksdsseis *set, int channel, const char *tag, const char *type,
                          const char *format, const char *dir, Dbptr origin,
                          int replace, Tbl **paths) {
  constexpr char kSelf[] = "ksdsseis_write_vector";
  return at_boundary(kSelf, [&]() -> int {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return -1;
    const ksvector2 *const vector =
        tag == nullptr ? nullptr : ksvector2_get_vector(tag);
    if (vector == nullptr || vector->tsamp == 0) {
      return fail(kSelf, "No time-sampled vector of that tag");
    }
    const std::string kind = type == nullptr ? "" : type;
    if (!kind.empty() && kind != "D" && kind != "V" && kind != "A") {
      return fail(kSelf, "Type '%s' is not D, V or A", type);
    }
    const std::string_view as = format == nullptr ? "" : format;
    if (dir == nullptr || (as != "sac" && as != "mseed")) {
      return fail(kSelf, "A folder and the format sac or mseed are needed");
    }
    FileSet files(kSelf, dir, replace != 0);
    bool good;
    if (as == "sac") {
      /* SAC files have ground motion in nm, nm/s and nm/s^2. */
      good = SacWriter(kSelf, files, origin)
                 .write(found->description, *vector, kind.c_str(),
                        kind.empty() ? 1.0 : 1e9);
    } else {
      good = MiniseedWriter(kSelf, files).write(*found, *vector, nullptr);
    }
    return finish(good, files, paths);
  });
}
