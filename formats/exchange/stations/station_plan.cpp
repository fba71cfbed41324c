#include "formats/exchange/stations/station_plan.h"

#include <algorithm>
#include <cmath>

#include "formats/exchange/stations/station_days.h"
#include "formats/exchange/stations/station_values.h"
#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

/* Stations of one code that lie further apart than this are not one station. */
constexpr double kNearDegrees = 0.05;
constexpr double kNoCoordinate = -999.0;

/* A text in lines of at most `width` characters, cut at blanks where there are some. */
std::vector<std::string> lines_of(const std::string &text, std::size_t width) {
  std::vector<std::string> lines;
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; }, ' ');
  std::string_view rest = trimmed(line);
  while (!rest.empty() && width > 0) {
    std::size_t end = rest.size();
    if (end > width) {
      end = rest.rfind(' ', width);
      if (end == rest.npos || end == 0) {
        for (end = width; end > 1 && (rest[end] & 0xc0) == 0x80; end--) {
        }
      }
    }
    lines.emplace_back(trimmed(rest.substr(0, end)));
    rest = trimmed(rest.substr(end));
  }
  return lines;
}

}  // namespace

struct StationPlan::TableName {
  const char *name;
  bool needed;
  std::vector<StationTable::Fields> keys;
};

const std::array<StationPlan::TableName, StationPlan::kTableCount>
    &StationPlan::table_names() {
  static const std::array<TableName, kTableCount> kNames{
      {{"lastid", true, {{"keyname"}}},
       {"remark", false, {{"commid"}}},
       {"network", false, {{"net"}}},
       {"instrument",
        true,
        {{"inid"},
         {"insname", "instype", "band", "digital", "samprate", "ncalib", "ncalper",
          "dir", "dfile", "rsptype"}}},
       {"seedcode",
        false,
        {{"sta", "chan"},
         {"net", "seedsta", "seedchan", "loc"},
         {"net", "seedsta"},
         {"sta"}}},
       {"affiliation", false, {{"net", "sta"}, {"sta"}}},
       {"sensor", true, {{"sta", "chan"}}},
       {"sitechan", true, {{"sta", "chan"}}},
       {"site", true, {{"sta"}}},
       {"wfdisc", false, {}},
       {"arrival", false, {}},
       {"calibration", false, {}}}};
  return kNames;
}

std::vector<std::string> StationPlan::names(db::DatabaseStore &store) {
  std::vector<std::string> names;
  for (std::size_t which = 0; which < kTableCount; which++) {
    const TableName &table = table_names()[which];
    if (store.schema()->find(table.name) != nullptr) {
      const bool names_channels = which >= kWfdisc;
      if (!names_channels || may_move(store, table.name))
        names.emplace_back(table.name);
    } else if (table.needed) {
      elog_log(0, "import: the schema %s has no table %s.\n",
               store.schema()->name().c_str(), table.name);
      return {};
    }
  }
  return names;
}

bool StationPlan::open(db::Transaction &step, const std::vector<std::string> &names,
                       const std::string &directory) {
  directory_ = directory;
  for (std::size_t which = 0; which < kTableCount; which++) {
    const TableName &table = table_names()[which];
    const auto place = std::find(names.begin(), names.end(), table.name);
    if (place == names.end()) continue;
    if (!tables_[which].open(step, static_cast<std::size_t>(place - names.begin()),
                             table.keys)) {
      return false;
    }
  }
  const StationTable &sensors = table(kSensor);
  for (std::size_t row = 0; row < sensors.size(); row++) {
    if (!sensors.row(row).empty()) uses_[sensors.integer(row, "inid")]++;
  }
  return true;
}

bool StationPlan::run() {
  for (const Network &network : gathered_.networks()) {
    if (!plan_network(network)) return false;
  }
  for (const bool derived : {false, true}) {
    for (const GatheredStation &station : gathered_.stations()) {
      if (station.station.derived == derived) plan_station(station);
    }
  }
  for (const std::size_t site : sites_) count(counts_.stations, change_of(site));
  for (const GatheredChannel &channel : gathered_.channels()) place_channel(channel);
  for (auto &[codes, channels] : channels_) {
    if (!plan_channels(codes, channels)) return false;
  }
  move_references();
  complete_networks();
  counts_.files = static_cast<std::int64_t>(files_.size());
  return true;
}

bool StationPlan::write(double now) {
  std::string problem;
  if (!counters_.write(problem)) {
    elog_log(0, "import: %s.\n", problem.c_str());
    return false;
  }
  return std::all_of(tables_.begin(), tables_.end(), [&](StationTable &table) {
    return !table.is_open() || table.write(now);
  });
}

RowEdit StationPlan::edit(Table which, std::string &row) {
  report_ = FillReport();
  return {table(which).layout(), row, report_};
}

void StationPlan::refuse(std::int64_t line, const std::string &reason) {
  counts_.refused++;
  refused_(line, reason);
}

void StationPlan::count(RecordCounts &counts, Change change) {
  switch (change) {
    case Change::kAdded:
      counts.added++;
      break;
    case Change::kUpdated:
      counts.updated++;
      break;
    case Change::kUnchanged:
      counts.unchanged++;
      break;
  }
}

bool StationPlan::take_id(const char *key, std::int64_t &id) {
  id = counters_.take(key);
  return id >= 0;
}

bool StationPlan::plan_network(const Network &network) {
  if (!has(kNetwork)) return true;
  StationTable &networks = table(kNetwork);
  if (!can_be_code(network.code)) {
    refuse(0, "a network code cannot be the key of a row");
    return true;
  }
  if (network.code.size() > static_cast<std::size_t>(networks.width("net"))) {
    refuse(0, "network code " + network.code.substr(0, 40) +
                  " is too long for network.net");
    return true;
  }
  const auto known = networks.find(0, {network.code});
  std::string row =
      known.empty() ? networks.null_row() : std::string(networks.row(known.front()));
  edit(kNetwork, row)
      .put("net", std::string_view(network.code))
      .given("netname", std::string_view(network.description));
  counts_.shortened += report_.shortened;
  if (!report_.refused.empty()) {
    refuse(0, report_.refused);
    return true;
  }
  bool changed = false;
  if (!plan_comments(network, row, changed)) return false;
  if (known.empty()) {
    networks.add(row);
    count(counts_.networks, Change::kAdded);
  } else {
    changed |= networks.set(known.front(), row);
    count(counts_.networks, changed ? Change::kUpdated : Change::kUnchanged);
  }
  return true;
}

/* Adds a row of network for each code that affiliation or seedcode names, those of earlier
 * imports included: a table that lacks some of them would make their rows refer to
 * nothing. */
void StationPlan::complete_networks() {
  if (!has(kNetwork)) return;
  StationTable &networks = table(kNetwork);
  std::set<std::string> named;
  for (const Table which : {kAffiliation, kSeedcode}) {
    if (!has(which)) continue;
    for (std::size_t row = 0; row < table(which).size(); row++) {
      named.insert(table(which).text(row, "net"));
    }
  }
  named.erase("");
  for (const std::string &code : named) {
    if (!networks.find(0, {code}).empty()) continue;
    std::string row = networks.null_row();
    edit(kNetwork, row).put("net", std::string_view(code));
    if (!report_.refused.empty()) continue;  // it fits the other tables only
    networks.add(row);
    count(counts_.networks, Change::kAdded);
  }
}

/* Adds the comments that are not there yet, below those of others. */
bool StationPlan::plan_comments(const Network &network, std::string &row,
                                bool &changed) {
  if (!has(kRemark) || network.comments.empty()) return true;
  StationTable &remarks = table(kRemark);
  const db::IntegerColumn commids(table(kNetwork).layout(), "commid");
  std::int64_t commid = commids.null(), last = 0;
  if (!commids.read(row, commid)) commid = commids.null();
  std::set<std::string> lines;
  if (commid != commids.null()) {
    for (const std::size_t line : remarks.find(0, {std::to_string(commid)})) {
      lines.insert(remarks.text(line, "remark"));
      last = std::max(last, remarks.integer(line, "lineno"));
    }
  }
  const auto width = static_cast<std::size_t>(remarks.width("remark"));
  for (const std::string &comment : network.comments) {
    for (const std::string &line : lines_of(comment, width)) {
      if (!lines.insert(line).second) continue;
      if (commid == commids.null()) {
        if (!take_id("commid", commid)) return false;
        edit(kNetwork, row).put("commid", commid);
      }
      std::string text = remarks.null_row();
      edit(kRemark, text)
          .put("commid", commid)
          .put("lineno", ++last)
          .put("remark", std::string_view(line));
      remarks.add(text);
      changed = true;
    }
  }
  return true;
}

/* The station code of the database: another one if seedcode has one for it. */
std::string StationPlan::code_of(const std::string &network,
                                 const std::string &station) {
  if (!has(kSeedcode) || network.empty()) return station;
  const auto [code, fresh] = codes_.try_emplace({network, station}, station);
  if (fresh) {
    const auto known = table(kSeedcode).find(2, {network, station});
    if (!known.empty()) code->second = table(kSeedcode).text(known.front(), "sta");
  }
  return code->second;
}

std::set<std::string> &StationPlan::networks_of(const std::string &sta) {
  const auto [known, fresh] = networks_.try_emplace(sta);
  if (!fresh) return known->second;
  if (has(kAffiliation)) {
    for (const std::size_t row : table(kAffiliation).find(1, {sta})) {
      known->second.insert(table(kAffiliation).text(row, "net"));
    }
  }
  if (has(kSeedcode)) {
    for (const std::size_t row : table(kSeedcode).find(3, {sta})) {
      known->second.insert(table(kSeedcode).text(row, "net"));
    }
  }
  known->second.erase("");
  return known->second;
}

/* Why the code belongs to another station: one of other networks, far away.  "" when it
 * does not. */
std::string StationPlan::stranger(const std::string &network, const Station &station,
                                  const std::string &sta) {
  const std::set<std::string> &networks = networks_of(sta);
  if (network.empty() || networks.empty() || networks.contains(network)) return "";
  const auto sites = table(kSite).find(0, {sta});
  for (const std::size_t site : sites) {
    const double lat = table(kSite).real(site, "lat", -999.0);
    const double lon = table(kSite).real(site, "lon", -999.0);
    const double east = std::remainder(lon - station.lon, 360.0);
    if (lat == -999.0 || (std::fabs(lat - station.lat) < kNearDegrees &&
                          std::fabs(east) * std::cos(lat * 0.01745) < kNearDegrees)) {
      return "";
    }
  }
  if (sites.empty()) return "";
  return "the code " + sta + " is in use for a station of network " +
         *networks.begin() +
         " at another place; a row of seedcode can give this one another code";
}

std::string StationPlan::check(const GatheredStation &gathered,
                               const std::string &sta) {
  if (!can_be_code(sta)) return "the code cannot be the key of a row";
  if (sta.size() > static_cast<std::size_t>(table(kSite).width("sta"))) {
    return "the code is too long for site.sta";
  }
  if (!gathered.network.empty() && !can_be_code(gathered.network)) {
    return "its network code cannot be the key of a row";
  }
  if (has(kNetwork) && gathered.network.size() >
                           static_cast<std::size_t>(table(kNetwork).width("net"))) {
    return "its network code is too long for network.net";
  }
  if (table(kSite).find(0, {sta}).size() >= kMostEpochs) {
    return "it has more than " + std::to_string(kMostEpochs) + " epochs";
  }
  std::string row = table(kSite).null_row();
  fill_site(gathered.station, sta, edit(kSite, row));
  if (!report_.refused.empty()) return report_.refused;
  counts_.shortened += gathered.station.derived ? 0 : report_.shortened;
  return stranger(gathered.network, gathered.station, sta);
}

void StationPlan::plan_station(const GatheredStation &gathered) {
  const std::string sta = code_of(gathered.network, gathered.station.code);
  const std::string reason = check(gathered, sta);
  if (!reason.empty()) {
    /* A derived station is refused with each of its channels. */
    if (!gathered.station.derived) {
      refuse(gathered.line,
             "station " + gathered.station.code.substr(0, 40) + ": " + reason);
    }
    return;
  }
  if (gathered.station.derived) {
    plan_derived(gathered, sta);
  } else {
    plan_epoch(gathered, sta);
  }
  affiliate(gathered.network, sta);
}

StationPlan::Change StationPlan::change_of(std::size_t site) {
  if (table(kSite).is_new(site)) return Change::kAdded;
  return table(kSite).is_changed(site) ? Change::kUpdated : Change::kUnchanged;
}

/* Whether a row of site only stands for a station whose place was not known: any epoch may
 * fill it in. */
bool StationPlan::lacks_place(std::size_t site) {
  return table(kSite).real(site, "lat", kNoCoordinate) == kNoCoordinate &&
         table(kSite).real(site, "lon", kNoCoordinate) == kNoCoordinate;
}

/* The row of the station that begins on the same day, or a new one. */
void StationPlan::plan_epoch(const GatheredStation &gathered, const std::string &sta) {
  StationTable &sites = table(kSite);
  const std::int64_t on = first_day(gathered.station.epoch);
  const std::int64_t off = last_day(gathered.station.epoch);
  const auto rows = sites.find(0, {sta});
  auto same = std::find_if(rows.begin(), rows.end(), [&](std::size_t row) {
    return sites.integer(row, "ondate") == on;
  });
  const bool dated = same != rows.end();
  if (!dated) {
    same = std::find_if(rows.begin(), rows.end(),
                        [&](std::size_t row) { return lacks_place(row); });
  }
  std::string row =
      same == rows.end() ? sites.null_row() : std::string(sites.row(*same));
  fill_site(gathered.station, sta, edit(kSite, row));
  if (same == rows.end()) {
    edit(kSite, row)
        .put("ondate", on)
        .put("offdate", off)
        .put("statype", std::string_view("ss"));
    sites_.insert(sites.add(row));
    return;
  }
  if (!dated) edit(kSite, row).put("ondate", on);
  if (!(is_open_day(off) && is_open_day(sites.integer(*same, "offdate")))) {
    edit(kSite, row).put("offdate", off);
  }
  sites.set(*same, row);
  sites_.insert(*same);
}

/* A station of which only channels are known: rows of the same place need only cover the
 * time of the channel. */
void StationPlan::plan_derived(const GatheredStation &gathered,
                               const std::string &sta) {
  StationTable &sites = table(kSite);
  const Station &station = gathered.station;
  const std::int64_t on = first_day(station.epoch), off = last_day(station.epoch);
  const auto near = [&](std::size_t row, const char *field, double value,
                        double tolerance) {
    const double known = sites.real(row, field, -999.0);
    return value == -999.0 || std::fabs(known - value) <= tolerance;
  };
  std::vector<std::size_t> rows;
  for (const std::size_t row : sites.find(0, {sta})) {
    if (near(row, "lat", station.lat, kSameDegrees) &&
        near(row, "lon", station.lon, kSameDegrees) &&
        near(row, "elev", station.elevation, kSameKilometres)) {
      rows.push_back(row);
    }
  }
  if (rows.empty()) {
    const auto of_code = sites.find(0, {sta});
    const auto bare = std::find_if(of_code.begin(), of_code.end(),
                                   [&](std::size_t row) { return lacks_place(row); });
    std::string row =
        bare == of_code.end() ? sites.null_row() : std::string(sites.row(*bare));
    fill_site(station, sta, edit(kSite, row));
    edit(kSite, row)
        .put("ondate", on)
        .put("offdate", off)
        .put("statype", std::string_view("ss"));
    if (bare == of_code.end()) {
      sites_.insert(sites.add(row));
    } else {
      sites.set(*bare, row);
      sites_.insert(*bare);
    }
    return;
  }
  const auto begin = [&](std::size_t row) {
    return begin_of_day(sites.integer(row, "ondate"));
  };
  const auto end = [&](std::size_t row) {
    return end_of_day(sites.integer(row, "offdate"));
  };
  const std::size_t first = *std::min_element(
      rows.begin(), rows.end(),
      [&](std::size_t a, std::size_t b) { return begin(a) < begin(b); });
  const std::size_t last =
      *std::max_element(rows.begin(), rows.end(),
                        [&](std::size_t a, std::size_t b) { return end(a) < end(b); });
  if (begin_of_day(on) < begin(first)) {
    std::string row(sites.row(first));
    edit(kSite, row).put("ondate", on);
    sites.set(first, row);
    sites_.insert(first);
  }
  if (end_of_day(off) > end(last)) {
    std::string row(sites.row(last));
    edit(kSite, row).put("offdate", off);
    sites.set(last, row);
  }
  sites_.insert(last);
}

void StationPlan::affiliate(const std::string &network, const std::string &sta) {
  if (!has(kAffiliation) || network.empty()) return;
  StationTable &affiliations = table(kAffiliation);
  if (!affiliations.find(0, {network, sta}).empty()) return;
  std::string row = affiliations.null_row();
  edit(kAffiliation, row)
      .put("net", std::string_view(network))
      .put("sta", std::string_view(sta));
  affiliations.add(row);
  networks_of(sta).insert(network);
}

}  // namespace ksutil::exchange
