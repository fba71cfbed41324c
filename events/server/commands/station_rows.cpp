#include "events/server/commands/internal/station_rows.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <utility>

#include "events/database/internal/row_columns.h"
#include "events/server/commands/internal/code_filters.h"
#include "events/server/commands/internal/table_scan.h"
#include "events/server/internal/server_state.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/owners.h"

namespace ksutil::events {
namespace {

/* A key is rounded to the decimals of its field: widen it, and check each row found. */
constexpr double kKeyMargin = 1e-4;

struct StationColumns {
  explicit StationColumns(const db::Relation &layout)
      : sta(layout, "sta"),
        chan(layout, "chan"),
        time(layout, "time"),
        endtime(layout, "endtime") {}
  /* False for a row without a readable time. */
  bool read(std::string_view row, std::string_view &station, std::string_view &channel,
            double &start) const {
    return time.read(row, start) && start > kNoTimeBelow && sta.read(row, station) &&
           chan.read(row, channel);
  }
  db::TextColumn sta, chan;
  db::RealColumn time, endtime;
};

/* Timed: collects records and puts them in the order of their times. */
template <class Record>
class Timed {
 public:
  void add(double time, Record record) {
    records_.emplace_back(time, std::move(record));
  }
  Table<Record> take() {
    std::stable_sort(records_.begin(), records_.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    Table<Record> table;
    table.reserve(static_cast<long>(records_.size()));
    for (auto &[time, record] : records_) table.push(std::move(record));
    return table;
  }

 private:
  std::vector<std::pair<double, Record>> records_;
};

/* The rows of the scan that a match finds for station, channel and window: all rows of the
 * selection, perhaps more.  Nothing if the selection cannot be written as a key, or if the
 * table has changed since the scan began. */
std::optional<std::vector<long>> matched(Command &command, const TableScan &scan,
                                         EVMatch &match, const ShellFilter &sta,
                                         const ShellFilter &chan,
                                         const Selection &selection) {
  const ElogScope quiet;
  const Dbptr key =
      dblookup(command.database().handle(), nullptr, "wfdisc", nullptr, "dbSCRATCH");
  Tbl *found = nullptr;
  if (dbputv(key, "sta", sta.text().c_str(), "chan", chan.text().c_str(), "time",
             selection.tstart - kKeyMargin, "endtime", selection.tend + kKeyMargin,
             static_cast<char *>(nullptr)) < 0 ||
      dbmatches(key, scan.table(), &match.kpattern, &match.tpattern, &match.hook,
                &found) < 0) {
    return std::nullopt;
  }
  const TblPtr owner(found);
  if (db::matched_rows(match.hook) != scan.rows()) return std::nullopt;
  return to_numbers(found);
}

/* Visits the rows of the selected stations and channels that begin before the window's
 * end.  Finds them by `match` if the selection names one station and channel, by
 * `station` if it names one station. */
template <class Visit>
bool visit_selected(TableScan &scan, Command &command, const Selection &selection,
                    EVMatch &match, EVMatch *station, Visit visit) {
  const ShellFilter sta(selection.sta), chan(selection.chan);
  const StationColumns columns(scan.rows()->layout());
  const auto filter = [&](long record, std::string_view row) {
    std::string_view of_sta, of_chan;
    double time = 0.0;
    if (columns.read(row, of_sta, of_chan, time) && time <= selection.tend &&
        sta.accepts(of_sta) && chan.accepts(of_chan)) {
      visit(columns, record, row, time);
    }
  };
  EVMatch *const used = !sta.literal()                     ? nullptr
                        : chan.literal()                   ? &match
                        : chan.any() && station != nullptr ? station
                                                           : nullptr;
  std::optional<std::vector<long>> records;
  if (used != nullptr) {
    records = matched(command, scan, *used, sta, chan, selection);
  }
  return records ? scan.each(*records, filter) : scan.each(filter);
}

double end_of(const StationColumns &columns, std::string_view row) {
  double endtime = 0.0;
  /* The null of endtime is a time beyond all others: the row is open. */
  return columns.endtime.read(row, endtime) ? endtime : columns.endtime.null();
}

/* An arrival and its arid, if it has one. */
using Arrival = std::pair<std::optional<int64_t>, EVArrival>;

Table<Arrival> arrivals_of(TableScan &scan, Command &command,
                           const Selection &selection) {
  EVVars &vars = command.database().vars();
  const db::TextColumn iphase(scan.rows()->layout(), "iphase");
  const db::IntegerColumn arid(scan.rows()->layout(), "arid");
  Timed<Arrival> found;
  const bool complete = visit_selected(
      scan, command, selection, vars.arrival_stachan, &vars.arrival_sta,
      [&](const StationColumns &columns, long record, std::string_view row,
          double time) {
        if (!(time >= selection.tstart)) return;
        std::string_view sta, chan, phase;
        int64_t id = arid.null();
        columns.sta.read(row, sta);
        columns.chan.read(row, chan);
        iphase.read(row, phase);
        arid.read(row, id);
        EVArrival arrival;
        arrival.recno_arrival = record;
        arrival.time = time;
        arrival.sta = sta;
        arrival.chan = chan;
        arrival.iphase = phase;
        arrival.record_arrival = row;
        found.add(time, {id == arid.null() ? std::nullopt : std::optional(id),
                         std::move(arrival)});
      });
  return complete ? found.take() : Table<Arrival>();
}

/* Fills in the first assoc row of each arrival. */
void add_assocs(Command &command, Table<Arrival> &arrivals) {
  scan_table(command, "assoc", [&](TableScan &scan) -> bool {
    WatchedDatabase &database = command.database();
    const db::KeyIndex *const index =
        database.index(scan.rows(), database.vars().assoc_arid);
    if (index == nullptr) return fail(command.who(), "cannot match assoc");
    for (auto &[arid, arrival] : arrivals) {
      if (!arid) continue;
      const db::KeyIndex::Rows rows = index->find(*arid);
      if (!rows.empty()) arrival.recno_assoc = rows.front();
    }
    return true;
  });
}

Table<EVTableRecord> wfdiscs_of(TableScan &scan, Command &command,
                                const Selection &selection, int mode) {
  Timed<EVTableRecord> found;
  const bool complete = visit_selected(
      scan, command, selection, command.database().vars().wfdisc_stachan, nullptr,
      [&](const StationColumns &columns, long record, std::string_view row,
          double time) {
        const double end = end_of(columns, row);
        if (end < time) return;
        const bool selected = mode == 0
                                  ? end >= selection.tstart
                                  : time >= selection.tstart && end <= selection.tend;
        if (selected) found.add(time, {record, std::string(row)});
      });
  return complete ? found.take() : Table<EVTableRecord>();
}

/* The patterns for station and channel of scan_wfdisc. */
class WfdiscCodes {
 public:
  bool compile(const char *who, const Selection &selection, const std::string &not_sta,
               const std::string &not_chan) {
    return sta_.compile(who, selection.sta) && chan_.compile(who, selection.chan) &&
           not_sta_.compile(who, not_sta) && not_chan_.compile(who, not_chan);
  }
  bool accept(std::string_view sta, std::string_view chan) {
    return accepted(sta_, not_sta_, sta) && accepted(chan_, not_chan_, chan);
  }

 private:
  static bool accepted(RegexFilter &wanted, RegexFilter &unwanted,
                       std::string_view code) {
    return wanted.found_in(code) && (unwanted.any() || !unwanted.found_in(code));
  }
  RegexFilter sta_, chan_, not_sta_, not_chan_;
};

Table<EVStaChan> stachans_of(TableScan &scan, const Selection &selection,
                             WfdiscCodes &wanted) {
  const StationColumns columns(scan.rows()->layout());
  struct Span {
    bool accepted;
    double start = INFINITY, end = -INFINITY;
  };
  std::map<std::pair<std::string, std::string>, Span> spans;
  const bool complete = scan.each([&](long, std::string_view row) {
    std::string_view of_sta, of_chan;
    double time = 0.0;
    if (!columns.read(row, of_sta, of_chan, time)) return;
    const double end = end_of(columns, row);
    if (!(time <= selection.tend && end >= selection.tstart)) return;
    auto [span, fresh] = spans.try_emplace({std::string(of_sta), std::string(of_chan)});
    if (fresh) span->second.accepted = wanted.accept(of_sta, of_chan);
    span->second.start = std::min(span->second.start, time);
    span->second.end = std::max(span->second.end, end);
  });
  Timed<EVStaChan> found;
  for (const auto &[codes, span] : spans) {
    if (!complete || !span.accepted) continue;
    found.add(span.start, {codes.first, codes.second, span.start, span.end});
  }
  return found.take();
}

Table<EVTableRecord> detections_of(TableScan &scan, Command &command,
                                   const Selection &selection) {
  const ShellFilter sta(selection.sta), chan(selection.chan);
  const StationColumns columns(scan.rows()->layout());
  /* This index exists already: the server's window uses it. */
  TimeIndex &times = command.database().detection_times();
  times.follow(scan.rows());
  Timed<EVTableRecord> found;
  const bool complete = scan.each(times.find(selection.tstart, selection.tend),
                                  [&](long record, std::string_view row) {
                                    std::string_view of_sta, of_chan;
                                    double time = 0.0;
                                    if (columns.read(row, of_sta, of_chan, time) &&
                                        sta.accepts(of_sta) && chan.accepts(of_chan)) {
                                      found.add(time, {record, std::string(row)});
                                    }
                                  });
  return complete ? found.take() : Table<EVTableRecord>();
}

}  // namespace

Table<EVArrival> get_arrivals(ServerState &state, const Selection &selection) {
  Command command(state, "EVServer::getArrivals");
  Table<Arrival> found = scan_table(command, "arrival", [&](TableScan &scan) {
    return arrivals_of(scan, command, selection);
  });
  if (found.size() > 0) add_assocs(command, found);
  Table<EVArrival> arrivals;
  arrivals.reserve(found.size());
  for (Arrival &each : found) arrivals.push(std::move(each.second));
  return arrivals;
}

Table<EVTableRecord> get_wfdiscs(ServerState &state, const Selection &selection,
                                 int mode) {
  Command command(state, "EVServer::getWfdiscs");
  return scan_table(command, "wfdisc", [&](TableScan &scan) {
    return wfdiscs_of(scan, command, selection, mode);
  });
}

Table<EVStaChan> scan_wfdisc(ServerState &state, const Selection &selection,
                             const std::string &not_sta, const std::string &not_chan) {
  constexpr const char *kWho = "EVServer::scanWfdisc";
  WfdiscCodes wanted;
  if (!wanted.compile(kWho, selection, not_sta, not_chan)) return {};
  Command command(state, kWho);
  return scan_table(command, "wfdisc", [&](TableScan &scan) {
    return stachans_of(scan, selection, wanted);
  });
}

Table<EVTableRecord> get_raw_detections(ServerState &state,
                                        const Selection &selection) {
  Command command(state, "EVServer::getRawDetections");
  return scan_table(command, "detection", [&](TableScan &scan) {
    return detections_of(scan, command, selection);
  });
}

EVTableRecord get_site(ServerState &state, const std::string &sta, double time) {
  Command command(state, "EVServer::getSite");
  return scan_table(command, "site", [&](TableScan &scan) -> EVTableRecord {
    SiteIndex &sites = state.database.sites();
    sites.follow(scan.rows());
    const long record = sites.find(sta, time);
    if (record < 0) return {};
    return {record, std::string(scan.rows()->row(record))};
  });
}

}  // namespace ksutil::events
