#include "waveforms/dataset/internal/wfdisc_rows.h"

#include <type_traits>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/trace/waveform.h"

namespace ksutil::dataset {
namespace {

namespace fs = std::filesystem;

}  // namespace

RowWriter::RowWriter(const char *who, Dbptr db) : who_(who), db_(db) {
  db_.table = db_.field = dbALL;
  db_.record = dbALL;
}

bool RowWriter::open() {
  store_ = db::database_store(db_);
  if (store_ == nullptr) return fail(who_, "The database of the rows is not open");
  if (!store_->writable()) {
    return fail(who_, "%s cannot be written", store_->name().c_str());
  }
  db::TableStore *const table = store_->table("wfdisc");
  if (table == nullptr) return fail(who_, "The database has no table wfdisc");
  const std::string &folder = table->directory();
  directory_ = fs::weakly_canonical(folder.empty() ? "." : folder);
  return read_channels();
}

bool RowWriter::read_channels() {
  if (store_->schema()->find("sitechan") == nullptr) return true;
  db::TableStore *const table = store_->table("sitechan");
  const auto rows = table == nullptr ? nullptr : table->snapshot();
  if (rows == nullptr) return fail(who_, "The table sitechan cannot be read");
  const db::TextColumn sta(rows->layout(), "sta"), chan(rows->layout(), "chan");
  const db::IntegerColumn ondate(rows->layout(), "ondate");
  const db::IntegerColumn offdate(rows->layout(), "offdate");
  const db::IntegerColumn chanid(rows->layout(), "chanid");
  ElogScope messages;  // broken rows name no channel
  for (long i = 0; i < rows->count(); ++i) {
    const std::string_view row = rows->row(i);
    std::string_view station, channel;
    Epoch epoch{-1, -1, -1};
    if (!row.empty() && sta.read(row, station) && chan.read(row, channel) &&
        ondate.read(row, epoch.ondate) && offdate.read(row, epoch.offdate) &&
        chanid.read(row, epoch.chanid)) {
      epochs_.emplace(std::pair(station, channel), epoch);
    }
  }
  if (!rows->complete()) {
    messages.keep();
    return fail(who_, "The table sitechan cannot be read");
  }
  return true;
}

std::int64_t RowWriter::chanid_of(const NewRow &row) const {
  const ksdsseis_channel &of = row.channel->description;
  const std::int64_t day = yearday(row.time);
  const auto range = epochs_.equal_range({of.sta, of.chan});
  for (auto each = range.first; each != range.second; ++each) {
    const Epoch &epoch = each->second;
    if (day >= epoch.ondate && (epoch.offdate <= 0 || day <= epoch.offdate)) {
      return epoch.chanid;
    }
  }
  return -1;
}

bool RowWriter::add(const std::vector<NewRow> &rows) {
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

bool RowWriter::fill(const db::Relation &layout, const NewRow &from, long wfid,
                     double now, std::string &row) const {
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
    return fits || bool(fail(who_, "%s of %s does not fit wfdisc", name, path.c_str()));
  };
  const auto put_name = [&](const char *name, const std::string &text) -> bool {
    const db::Field *const field = layout.find(name);
    const std::string fault =
        field == nullptr ? std::string() : waveform_name_fault(*field, text);
    if (fault.empty()) return put(name, text);
    return fail(who_, "%s of %s does not fit wfdisc: it %s", name, path.c_str(),
                fault.c_str());
  };
  const ksdsseis_channel &of = from.channel->description;
  return put("sta", std::string(of.sta)) && put("chan", std::string(of.chan)) &&
         put("time", from.time) && put("endtime", from.endtime) &&
         put("chanid", chanid_of(from)) &&
         put("jdate", std::int64_t{yearday(from.time)}) && put("nsamp", from.nsamp) &&
         put("samprate", from.samprate) && put("datatype", std::string("sd")) &&
         put("calib", calibration.calib) &&
         (!(calibration.calper > 0.0) || put("calper", calibration.calper)) &&
         (calibration.segtype.empty() || put("segtype", calibration.segtype)) &&
         put_name("dir", dir_of(path.parent_path())) &&
         put_name("dfile", path.filename().string()) && put("foff", from.foff) &&
         put("wfid", std::int64_t{wfid}) && put("lddate", now);
}

/* From the folder of wfdisc if the file lies below it, else absolute. */
std::string RowWriter::dir_of(const fs::path &folder) const {
  const fs::path below = folder.lexically_relative(directory_);
  return below.empty() || *below.begin() == ".." ? folder.string() : below.string();
}

}  // namespace ksutil::dataset
