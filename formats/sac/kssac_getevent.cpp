#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include "formats/sac/internal/joined_row.h"
#include "formats/sac/internal/sac_header.h"
#include "formats/sac/internal/sac_record.h"
#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"

namespace ksutil::sac {
namespace {

/* RowEdit: the new text of one row.  Fields that the table lacks, and nulls, change
 * nothing. */
class RowEdit {
 public:
  explicit RowEdit(const RowPart &part) : part_(part), row_(part.text.str()) {}

  void real(const char *field, std::optional<double> value) {
    const db::Field *const place = part_.layout->find(field);
    if (place == nullptr || !value) return;
    good_ = good_ && db::write_real(*place, *value, row_);
  }
  void integer(const char *field, std::optional<std::int64_t> value) {
    const db::Field *const place = part_.layout->find(field);
    if (place == nullptr || !value) return;
    good_ = good_ && db::write_integer(*place, *value, row_);
  }
  void text(const char *field, std::string_view value) {
    const db::Field *const place = part_.layout->find(field);
    if (place == nullptr || is_null(value)) return;
    good_ = good_ && db::write_text(*place, value, row_);
  }
  void address(const char *field, const void *block) {
    integer(field, static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(block)));
  }
  bool good() const { return good_; }
  const Dbptr &record() const { return part_.row; }
  bool write() const { return dbput(part_.row, row_.c_str()) == 0; }

 private:
  const RowPart &part_;
  std::string row_;
  bool good_ = true;
};

std::optional<double> known_real(const KSSac &kssac, const char *name,
                                 double divisor = 1.0) {
  const double value = real_of(kssac, name);
  return is_null(value) ? std::nullopt : std::optional(value / divisor);
}

std::optional<std::int64_t> known_integer(const KSSac &kssac, const char *name) {
  const std::int64_t value = integer_of(kssac, name);
  return value == kNullInteger ? std::nullopt : std::optional(value);
}

/* A time after the reference time, as epoch seconds. */
std::optional<double> known_time(KSSac &kssac, const char *name) {
  const std::optional<double> after = known_real(kssac, name);
  double reference;
  if (!after || !has_reference_time(kssac) ||
      kssac_getreftime_kssac(&kssac, &reference) != 0) {
    return std::nullopt;
  }
  return reference + *after;
}

using Count = std::optional<std::int64_t>;

void set_waveform(KSSac &kssac, Count nsamp, RowEdit &row) {
  const std::optional<double> time = known_time(kssac, "B");
  const std::optional<double> samprate = known_samprate(kssac);
  row.real("time", time);
  row.real("samprate", samprate);
  row.integer("nsamp", nsamp);
  if (time) row.integer("jdate", yearday(*time));
  if (time && samprate && nsamp && *nsamp > 0) {
    row.real("endtime", *time + static_cast<double>(*nsamp - 1) / *samprate);
  }
  switch (integer_of(kssac, "IDEP")) {
    case kDisplacement:
      row.text("segtype", "D");
      break;
    case kVelocity:
      row.text("segtype", "V");
      break;
    case kAcceleration:
      row.text("segtype", "A");
      break;
    default:
      break;
  }
  row.integer("wfid", known_integer(kssac, "NWFID"));
}

void set_fields(KSSac &kssac, const RowPart &part, Count nsamp, RowEdit &row) {
  const std::string &table = part.layout->name;
  row.text("sta", text_of(kssac, "KSTNM"));
  row.text("chan", text_of(kssac, "KCMPNM"));
  row.text("net", text_of(kssac, "KNETWK"));
  if (table == "wfdisc" || table == "trace") {
    set_waveform(kssac, nsamp, row);
  } else if (table == "site") {
    row.real("lat", known_real(kssac, "STLA"));
    row.real("lon", known_real(kssac, "STLO"));
    row.real("elev", known_real(kssac, "STEL", kMetresPerKm));
  } else if (table == "sitechan") {
    row.real("edepth", known_real(kssac, "STDP", kMetresPerKm));
    row.real("hang", known_real(kssac, "CMPAZ"));
    row.real("vang", known_real(kssac, "CMPINC"));
  }
}

void set_origin(KSSac &kssac, RowEdit &row) {
  const std::optional<double> time = known_time(kssac, "O");
  row.real("lat", known_real(kssac, "EVLA"));
  row.real("lon", known_real(kssac, "EVLO"));
  row.real("depth", known_real(kssac, "EVDP", kMetresPerKm));
  row.real("time", time);
  if (time) row.integer("jdate", yearday(*time));
  row.integer("orid", known_integer(kssac, "NORID"));
  row.integer("evid", known_integer(kssac, "NEVID"));
}

/* Whether another row than `record` has the samples. */
bool is_shared(Dbptr record, const void *data) {
  Dbptr row = dblookup(record, "", "trace", "", "");
  long count = 0;
  if (dbquery(row, dbq_record_count, &count) != 0) return true;
  for (row.record = 0; row.record < count; ++row.record) {
    void *other = nullptr;
    if (row.record != record.record &&
        dbgetv(row, "data", &other, (char *)nullptr) == 0 && other == data) {
      return true;
    }
  }
  return false;
}

/* A copy of the record's samples, null when it has none; false with a message. */
bool copy_samples(KSSac &kssac, MallocPtr<float> &samples) {
  long nsamp = 0;
  double time, samprate;
  float *copy = nullptr;
  if (integer_of(kssac, "IFTYPE") != kTimeSeries) return true;
  if (kssac_getdata_kssac(&kssac, &nsamp, &time, &samprate, &copy, nullptr) != 0) {
    return false;
  }
  samples.reset(copy);
  return true;
}

/* The samples that a trace row points to; null for none. */
void *samples_of(const RowPart &trace) {
  void *data = nullptr;
  return dbgetv(trace.row, "data", &data, (char *)nullptr) == 0 ? data : nullptr;
}

/* The number of samples for the rows: NPTS, but a trace row that keeps its own samples must
 * not count more than it has. */
Count sample_count(const KSSac &kssac, const JoinedRow &waveform, bool keeps_own) {
  std::int64_t own;
  if (keeps_own) {
    return waveform.integer({"trace"}, "nsamp", own) ? Count(own) : std::nullopt;
  }
  const Count npts = known_integer(kssac, "NPTS");
  return npts && *npts < 0 ? std::nullopt : npts;
}

/* The samples that a trace row gives up when its row is written. */
void free_samples(Dbptr row, void *before) {
  if (before != nullptr && !is_shared(row, before)) std::free(before);
}

}  // namespace
}  // namespace ksutil::sac

using namespace ksutil::sac;
using ksutil::fail;

int kssac_getevent_kssac(KSSac *kssac, Dbptr wf, Dbptr origin) {
  return ksutil::at_boundary("kssac_getevent_kssac", [&]() -> int {
    if (kssac == nullptr || kssac->image == nullptr) {
      return fail("kssac_getevent_kssac", "No kssac");
    }
    JoinedRow waveform, event;
    if ((JoinedRow::is_valid(wf) && !waveform.open(wf)) ||
        (JoinedRow::is_valid(origin) && !event.open(origin))) {
      return fail("kssac_getevent_kssac", "Cannot read the database row");
    }
    const RowPart *const trace = waveform.part("trace");
    ksutil::MallocPtr<float> samples;
    if (trace != nullptr && !copy_samples(*kssac, samples)) {
      return fail("kssac_getevent_kssac", "kssac_getdata_kssac() error");
    }
    void *const before = trace == nullptr ? nullptr : samples_of(*trace);
    const bool keeps_own = samples == nullptr && before != nullptr;
    const Count nsamp = sample_count(*kssac, waveform, keeps_own);
    /* All texts are made before the first is written, so that a value that does not fit
   * changes nothing.  The row of the trace is the first, and gets its samples and their
   * count in one write: a row that counts more samples than it has would be read beyond
   * their end. */
    std::vector<RowEdit> rows;
    for (const RowPart *const part :
         waveform.parts({"trace", "wfdisc", "site", "sitechan", "affiliation"})) {
      set_fields(*kssac, *part, nsamp, rows.emplace_back(*part));
    }
    if (samples != nullptr) rows.front().address("data", samples.get());
    for (const RowPart *const part : event.parts({"origin"})) {
      set_origin(*kssac, rows.emplace_back(*part));
    }
    for (const RowEdit &row : rows) {
      if (!row.good()) {
        return fail("kssac_getevent_kssac", "A header value does not fit its field");
      }
    }
    for (const RowEdit &row : rows) {
      if (!row.write()) {
        return fail("kssac_getevent_kssac", "Cannot write the database row");
      }
      if (samples == nullptr) continue;
      static_cast<void>(samples.release());  // the row of the trace has them
      free_samples(trace->row, before);
    }
    return 0;
  });
}
