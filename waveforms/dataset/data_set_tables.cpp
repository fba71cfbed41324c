/* data_set_tables: looks up the rows that describe the channels of a data set. */
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>
#include <unordered_map>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "waveforms/dataset/internal/data_set.h"

namespace ksutil::dataset {
namespace {

/* The rows of one table by a key of texts, each with the time in which it holds. */
class EpochTable {
 public:
  enum class Epochs { kNone, kDays, kTimes };

  EpochTable(Dbptr db, const char *table, std::vector<const char *> key, Epochs epochs)
      : name_(table) {
    if (!db::has_table(db, table)) return;
    const Dbptr found = dblookup(db, "", table, "", "");
    db::TableStore *const store = db::table_store(found);
    snapshot_ = db::table_snapshot(found);
    if (store == nullptr || snapshot_ == nullptr) {
      unread_ = true;
      return;
    }
    directory_ = store->directory();
    for (const char *const field : key) {
      const db::TextColumn column(snapshot_->layout(), field);
      if (!column.valid()) return;
      key_.push_back(column);
    }
    const db::Relation &layout = snapshot_->layout();
    if (epochs == Epochs::kDays) {
      ondate_ = db::IntegerColumn(layout, "ondate");
      offdate_ = db::IntegerColumn(layout, "offdate");
    } else if (epochs == Epochs::kTimes) {
      time_ = db::RealColumn(layout, "time");
      endtime_ = db::RealColumn(layout, "endtime");
    }
    for (long i = 0; i < snapshot_->count(); ++i) enter(i);
  }

  /* The row of a key that holds at a time, of several the one that began last. */
  db::RowText find(const std::vector<std::string> &key, double time) {
    const auto found = rows_.find(joined(key));
    if (found == rows_.end()) return {};
    const Row *best = nullptr;
    for (const Row &row : found->second) {
      if (row.begin <= time && time < row.end &&
          (best == nullptr || row.begin >= best->begin)) {
        best = &row;
      }
    }
    if (best == nullptr) return {};
    db::RowText text = snapshot_->text(best->record);
    if (text.empty()) unread_ = true;
    return text;
  }

  const db::Relation &layout() const { return snapshot_->layout(); }
  const std::string &directory() const { return directory_; }
  const char *name() const { return name_; }
  /* Whether the table has rows that cannot be read. */
  bool unread() const { return unread_; }

 private:
  struct Row {
    double begin, end;
    long record;
  };

  static std::string joined(const std::vector<std::string> &key) {
    std::string text;
    for (const std::string &part : key) text += part + '\n';
    return text;
  }

  void enter(long record) {
    const std::string_view row = snapshot_->row(record);
    if (row.empty()) unread_ = true;
    std::vector<std::string> key;
    for (const db::TextColumn &column : key_) {
      std::string_view value;
      if (row.empty() || !column.read(row, value)) return;
      key.emplace_back(trimmed(value));
    }
    Row entry{-1e300, 1e300, record};
    if (ondate_.valid()) read_days(row, entry.begin, entry.end);
    if (time_.valid()) read_times(row, entry.begin, entry.end);
    rows_[joined(key)].push_back(entry);
  }

  /* Null days are open ends; a day is meant to its end. */
  void read_days(std::string_view row, double &begin, double &end) const {
    std::int64_t day;
    if (ondate_.read(row, day) && day > 0) begin = yearday_epoch(static_cast<int>(day));
    if (offdate_.valid() && offdate_.read(row, day) && day > 0) {
      end = yearday_epoch(static_cast<int>(day)) + 86400.0;
    }
  }
  void read_times(std::string_view row, double &begin, double &end) const {
    double time;
    if (time_.read(row, time) && time != time_.null()) begin = time;
    if (endtime_.valid() && endtime_.read(row, time) && time != endtime_.null()) {
      end = time;
    }
  }

  const char *const name_;
  bool unread_ = false;
  std::shared_ptr<const db::Snapshot> snapshot_;
  std::string directory_;
  std::vector<db::TextColumn> key_;
  db::IntegerColumn ondate_, offdate_;
  db::RealColumn time_, endtime_;
  std::unordered_map<std::string, std::vector<Row>> rows_;
};

template <std::size_t kSize>
void copy_text(const db::Relation &layout, std::string_view row, const char *field,
               char (&to)[kSize]) {
  const db::TextColumn column(layout, field);
  std::string_view value;
  if (!column.valid() || !column.read(row, value)) return;
  value = trimmed(value);
  if (column.is_null(value)) return;
  const std::size_t length = std::min(value.size(), kSize - 1);
  std::memcpy(to, value.data(), length);
  to[length] = '\0';
}

/* Leaves `to` for a null. */
void copy_real(const db::Relation &layout, std::string_view row, const char *field,
               double &to) {
  const db::RealColumn column(layout, field);
  double value;
  if (column.valid() && column.read(row, value) && value != column.null()) to = value;
}

std::int64_t integer_of(const db::Relation &layout, std::string_view row,
                        const char *field) {
  const db::IntegerColumn column(layout, field);
  std::int64_t value = -1;
  if (!column.valid() || !column.read(row, value)) return -1;
  return value == column.null() ? -1 : value;
}

/* The tables as they are at the time of one ksdsseis_open. */
class Metadata {
 public:
  explicit Metadata(Dbptr db)
      : site_(db, "site", {"sta"}, EpochTable::Epochs::kDays),
        sitechan_(db, "sitechan", {"sta", "chan"}, EpochTable::Epochs::kDays),
        sensor_(db, "sensor", {"sta", "chan"}, EpochTable::Epochs::kTimes),
        instrument_(db, "instrument", {"inid"}, EpochTable::Epochs::kNone),
        seedcode_(db, "seedcode", {"sta", "chan"}, EpochTable::Epochs::kNone) {}

  void describe(ksdsseis_channel &to) {
    read_site(to);
    read_sitechan(to);
    read_seedcode(to);
    read_instrument(to, read_sensor(to));
    if (to.calib == 0.0 || !std::isfinite(to.calib)) {
      to.calib = 0.0;
      to.missing |= KSDSSEIS_NO_CALIB;
    }
    say_missing(to);
  }

  /* Registers the tables with rows that cannot be read. */
  void tell_unread() const {
    for (const EpochTable *table :
         {&site_, &sitechan_, &sensor_, &instrument_, &seedcode_}) {
      if (table->unread()) {
        elog_log(0, "ksdsseis_open: Rows of %s cannot be read.\n", table->name());
      }
    }
  }

 private:
  void read_site(ksdsseis_channel &to) {
    const db::RowText row = site_.find({to.sta}, to.time);
    if (row.empty()) {
      to.missing |= KSDSSEIS_NO_SITE;
      return;
    }
    const db::Relation &layout = site_.layout();
    copy_real(layout, row, "lat", to.lat);
    copy_real(layout, row, "lon", to.lon);
    copy_real(layout, row, "elev", to.elev);
    copy_real(layout, row, "dnorth", to.dnorth);
    copy_real(layout, row, "deast", to.deast);
  }

  void read_sitechan(ksdsseis_channel &to) {
    const db::RowText row = sitechan_.find({to.sta, to.chan}, to.time);
    if (row.empty()) {
      to.missing |= KSDSSEIS_NO_SITECHAN;
      return;
    }
    copy_real(sitechan_.layout(), row, "hang", to.hang);
    copy_real(sitechan_.layout(), row, "vang", to.vang);
    copy_real(sitechan_.layout(), row, "edepth", to.edepth);
  }

  void read_seedcode(ksdsseis_channel &to) {
    const db::RowText row = seedcode_.find({to.sta, to.chan}, to.time);
    if (row.empty()) {
      to.missing |= KSDSSEIS_NO_SEEDCODE;
      return;
    }
    copy_text(seedcode_.layout(), row, "net", to.net);
    copy_text(seedcode_.layout(), row, "seedsta", to.seedsta);
    copy_text(seedcode_.layout(), row, "seedchan", to.seedchan);
    copy_text(seedcode_.layout(), row, "loc", to.loc);
  }

  /* The inid of the sensor; -1 for none. */
  std::int64_t read_sensor(ksdsseis_channel &to) {
    const db::RowText row = sensor_.find({to.sta, to.chan}, to.time);
    if (row.empty()) {
      to.missing |= KSDSSEIS_NO_SENSOR;
      return -1;
    }
    double calratio = 0.0;
    copy_real(sensor_.layout(), row, "calratio", calratio);
    if (calratio > 0.0) to.calratio = calratio;
    copy_real(sensor_.layout(), row, "tshift", to.tshift);
    if (to.calper <= 0.0) copy_real(sensor_.layout(), row, "calper", to.calper);
    return integer_of(sensor_.layout(), row, "inid");
  }

  void read_instrument(ksdsseis_channel &to, std::int64_t inid) {
    const db::RowText row =
        inid < 0 ? db::RowText() : instrument_.find({std::to_string(inid)}, to.time);
    if (row.empty()) {
      to.missing |= KSDSSEIS_NO_INSTRUMENT | KSDSSEIS_NO_RESPONSE;
      return;
    }
    const db::Relation &layout = instrument_.layout();
    copy_text(layout, row, "instype", to.instype);
    copy_text(layout, row, "band", to.band);
    copy_text(layout, row, "rsptype", to.rsptype);
    if (to.calib == 0.0) {
      copy_real(layout, row, "ncalib", to.calib);
      copy_real(layout, row, "ncalper", to.calper);
    }
    char dir[256] = "", dfile[256] = "";
    copy_text(layout, row, "dir", dir);
    copy_text(layout, row, "dfile", dfile);
    set_response(to, dir, dfile);
  }

  /* A look that fails, as on a failing disk, does not tell that the file is missing: its
   * reader tells what is wrong. */
  static bool is_there(const std::string &path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 ||
           (errno != ENOENT && errno != ENOTDIR && errno != EACCES);
  }

  void set_response(ksdsseis_channel &to, const std::string &dir,
                    const std::string &dfile) const {
    std::string path = dfile;
    if (!dfile.empty() && dfile.front() != '/') {
      if (!dir.empty() && dir != ".") path = dir + "/" + dfile;
      const std::string &table = instrument_.directory();
      if (path.front() != '/' && !table.empty()) path = table + "/" + path;
    }
    if (dfile.empty() || path.size() >= sizeof to.response || !is_there(path)) {
      to.missing |= KSDSSEIS_NO_RESPONSE;
    }
    if (!dfile.empty() && path.size() < sizeof to.response) {
      std::memcpy(to.response, path.c_str(), path.size() + 1);
    }
  }

  static void say_missing(ksdsseis_channel &to) {
    static constexpr struct {
      int bit;
      const char *text;
    } kTexts[] = {{KSDSSEIS_NO_SITE, "site"},
                  {KSDSSEIS_NO_SITECHAN, "sitechan"},
                  {KSDSSEIS_NO_SENSOR, "sensor"},
                  {KSDSSEIS_NO_INSTRUMENT, "instrument"},
                  {KSDSSEIS_NO_RESPONSE, "response"},
                  {KSDSSEIS_NO_SEEDCODE, "seedcode"},
                  {KSDSSEIS_NO_CALIB, "calib"},
                  {KSDSSEIS_OTHER_SAMPRATE, "one sample rate"}};
    std::string text;
    for (const auto &each : kTexts) {
      /* Without a sensor the instrument cannot be known, nor without it the response. */
      const bool follows = (each.bit == KSDSSEIS_NO_INSTRUMENT &&
                            (to.missing & KSDSSEIS_NO_SENSOR) != 0) ||
                           (each.bit == KSDSSEIS_NO_RESPONSE &&
                            (to.missing & KSDSSEIS_NO_INSTRUMENT) != 0);
      if ((to.missing & each.bit) == 0 || follows) continue;
      text += (text.empty() ? "" : ", ") + std::string(each.text);
    }
    std::memcpy(to.missing_text, text.c_str(), text.size() + 1);
  }

  EpochTable site_, sitechan_, sensor_, instrument_, seedcode_;
};

}  // namespace

void describe_channels(Dbptr db, std::vector<Channel> &channels) {
  if (channels.empty()) return;
  Dbptr whole = db;
  whole.table = whole.field = dbALL;
  whole.record = dbALL;
  std::optional<Metadata> metadata;
  {
    /* Tables that the schema or the database lacks are missing metadata. */
    const ElogScope messages;
    metadata.emplace(whole);
    for (Channel &channel : channels) metadata->describe(channel.description);
  }
  metadata->tell_unread();
}

}  // namespace ksutil::dataset
