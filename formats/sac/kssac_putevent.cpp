#include <cmath>
#include <cstring>
#include <memory>

#include "formats/sac/internal/joined_row.h"
#include "formats/sac/internal/sac_header.h"
#include "formats/sac/internal/sac_record.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/geo/angle.h"
#include "platform/geo/geo.h"

namespace ksutil::sac {
namespace {

constexpr double kDegrees = 57.29577951308232;  // per radian
constexpr double kRadians = kRadiansPerDegree;
constexpr double kEarthRadius = 6371.0;  // km

double real_or_null(const JoinedRow &row, JoinedRow::Tables tables, const char *field,
                    double factor = 1.0) {
  double value;
  return row.real(tables, field, value) ? value * factor : kNullReal;
}

std::int64_t integer_or_null(const JoinedRow &row, JoinedRow::Tables tables,
                             const char *field) {
  std::int64_t value = kNullInteger;
  row.integer(tables, field, value);
  return value;
}

std::string text_or_null(const JoinedRow &row, JoinedRow::Tables tables,
                         const char *field) {
  std::string value = kNullText;
  row.text(tables, field, value);
  return value;
}

/* The location code that the table seedcode has for a station channel, of the given
 * network when that is known; the header's null when there is none.  False, with a message,
 * when the table cannot be read. */
bool location_of(Dbptr record, const std::string &sta, const std::string &chan,
                 const std::string &net, std::string &location) {
  location = kNullText;
  if (!db::has_table(record, "seedcode")) return true;
  const std::shared_ptr<const db::Snapshot> rows =
      db::table_snapshot(dblookup(record, "", "seedcode", "", ""));
  if (rows == nullptr) return false;
  ElogScope messages;  // broken rows are of no channel
  const db::TextColumn row_sta(rows->layout(), "sta"), row_chan(rows->layout(), "chan"),
      row_net(rows->layout(), "net"), row_loc(rows->layout(), "loc");
  std::string_view value;
  for (long i = 0; i < rows->count(); ++i) {
    const std::string_view row = rows->row(i);
    if (!row_sta.read(row, value) || value != sta) continue;
    if (!row_chan.read(row, value) || value != chan) continue;
    if (net != kNullText && row_net.read(row, value) && !row_net.is_null(value) &&
        value != net) {
      continue;
    }
    if (row_loc.read(row, value) && !row_loc.is_null(value)) location = value;
    return true;
  }
  if (!rows->complete()) messages.keep();
  return rows->complete();
}

struct Names {
  std::string sta, chan, net, loc;
};

/* False, with a message, when the table seedcode cannot be read. */
bool read_names(Dbptr record, const JoinedRow &row, Names &names) {
  names.sta =
      text_or_null(row, {"wfdisc", "trace", "site", "sitechan", "affiliation"}, "sta");
  names.chan = text_or_null(row, {"wfdisc", "trace", "sitechan"}, "chan");
  names.net = text_or_null(row, {"trace", "affiliation"}, "net");
  return location_of(record, names.sta, names.chan, names.net, names.loc);
}

void put_names(KSSac *kssac, const Names &names) {
  kssac_puthdr_kssac(kssac, "KSTNM", names.sta.c_str(), "KCMPNM", names.chan.c_str(),
                     "KNETWK", names.net.c_str(), "KHOLE", names.loc.c_str(),
                     (char *)nullptr);
}

void put_places(KSSac *kssac, const JoinedRow &row) {
  kssac_puthdr_kssac(kssac, "STLA", real_or_null(row, {"site"}, "lat"), "STLO",
                     real_or_null(row, {"site"}, "lon"), "STEL",
                     real_or_null(row, {"site"}, "elev", kMetresPerKm), "STDP",
                     real_or_null(row, {"sitechan"}, "edepth", kMetresPerKm), "CMPAZ",
                     real_or_null(row, {"sitechan"}, "hang"), "CMPINC",
                     real_or_null(row, {"sitechan"}, "vang"), "NWFID",
                     integer_or_null(row, {"wfdisc"}, "wfid"), (char *)nullptr);
}

/* The samples of a trace row, which stay its own; null for none. */
const float *samples_of(const JoinedRow &row) {
  const RowPart *const trace = row.part("trace");
  void *data = nullptr;
  if (trace != nullptr) dbgetv(trace->row, "data", &data, (char *)nullptr);
  return static_cast<const float *>(data);
}

bool put_waveform(KSSac *kssac, const JoinedRow &row) {
  double time, samprate;
  if (!row.real({"wfdisc", "trace"}, "time", time) ||
      !row.real({"wfdisc", "trace"}, "samprate", samprate)) {
    return true;
  }
  const std::int64_t nsamp = integer_or_null(row, {"wfdisc", "trace"}, "nsamp");
  if (const float *const samples = samples_of(row); samples != nullptr && nsamp > 0) {
    const std::string type = text_or_null(row, {"trace"}, "segtype");
    return kssac_putdata_kssac(kssac, static_cast<long>(nsamp), samples, type.c_str(),
                               time, samprate) == 0;
  }
  const ReferenceTime reference = reference_time(time);
  kssac_puthdr_kssac(
      kssac, "NZYEAR", std::int64_t{reference.year}, "NZJDAY",
      std::int64_t{reference.day}, "NZHOUR", std::int64_t{reference.hour}, "NZMIN",
      std::int64_t{reference.minute}, "NZSEC", std::int64_t{reference.second}, "NZMSEC",
      std::int64_t{reference.millisecond}, "IZTYPE", kReferenceIsBegin, "B",
      time - reference.epoch, "DELTA", samprate > 0.0 ? 1.0 / samprate : kNullReal,
      "NPTS", nsamp, (char *)nullptr);
  return true;
}

void put_origin(KSSac *kssac, const JoinedRow &row) {
  double time, reference;
  double after_reference = kNullReal;
  if (row.real({"origin"}, "time", time) && has_reference_time(*kssac) &&
      kssac_getreftime_kssac(kssac, &reference) == 0) {
    after_reference = time - reference;
  }
  kssac_puthdr_kssac(kssac, "EVLA", real_or_null(row, {"origin"}, "lat"), "EVLO",
                     real_or_null(row, {"origin"}, "lon"), "EVDP",
                     real_or_null(row, {"origin"}, "depth", kMetresPerKm), "O",
                     after_reference, "NORID", integer_or_null(row, {"origin"}, "orid"),
                     "NEVID", integer_or_null(row, {"origin"}, "evid"),
                     (char *)nullptr);
}

/* Distance and azimuths from the places in the header. */
void put_distance(KSSac *kssac) {
  const double stla = real_of(*kssac, "STLA"), stlo = real_of(*kssac, "STLO");
  const double evla = real_of(*kssac, "EVLA"), evlo = real_of(*kssac, "EVLO");
  double gcarc = kNullReal, az = kNullReal, baz = kNullReal, distance = kNullReal;
  if (!is_null(stla) && !is_null(stlo) && !is_null(evla) && !is_null(evlo)) {
    double delta, forward, back;
    dist(evla * kRadians, evlo * kRadians, stla * kRadians, stlo * kRadians, &delta,
         &forward);
    dist(stla * kRadians, stlo * kRadians, evla * kRadians, evlo * kRadians, nullptr,
         &back);
    gcarc = delta * kDegrees;
    az = forward * kDegrees;
    baz = back * kDegrees;
    distance = gcarc * kRadians * kEarthRadius;
  }
  kssac_puthdr_kssac(kssac, "GCARC", gcarc, "AZ", az, "BAZ", baz, "DIST", distance,
                     (char *)nullptr);
}

}  // namespace
}  // namespace ksutil::sac

using namespace ksutil::sac;
using ksutil::fail;

int kssac_putevent_kssac(KSSac *kssac, Dbptr wf, Dbptr origin) {
  return ksutil::at_boundary("kssac_putevent_kssac", [&]() -> int {
    if (kssac == nullptr || kssac->image == nullptr) {
      return fail("kssac_putevent_kssac", "No kssac");
    }
    JoinedRow waveform, event;
    const bool with_waveform = JoinedRow::is_valid(wf);
    const bool with_event = JoinedRow::is_valid(origin);
    if ((with_waveform && !waveform.open(wf)) || (with_event && !event.open(origin))) {
      return fail("kssac_putevent_kssac", "Cannot read the database row");
    }
    if (with_waveform) {
      /* First, as these alone can fail. */
      Names names;
      if (!read_names(wf, waveform, names)) {
        return fail("kssac_putevent_kssac", "Cannot read the table seedcode");
      }
      if (!put_waveform(kssac, waveform)) {
        return fail("kssac_putevent_kssac", "kssac_putdata_kssac() error");
      }
      put_names(kssac, names);
      put_places(kssac, waveform);
    }
    if (with_event) put_origin(kssac, event);
    if (with_waveform || with_event) put_distance(kssac);
    return 0;
  });
}
