/* station_plan_channels: the part of StationPlan that decides rows of channels. */
#include <algorithm>
#include <cmath>

#include "formats/exchange/stations/station_days.h"
#include "formats/exchange/stations/station_plan.h"
#include "formats/exchange/stations/station_values.h"
#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kSameTime = 0.001;  // s

bool same_start(double a, double b) { return std::fabs(a - b) < kSameTime; }

bool too_long(const std::string &text, const StationTable &table, const char *field) {
  return text.size() > static_cast<std::size_t>(table.width(field));
}

}  // namespace

/* The values of a row of sitechan that epochs must share to share the row. */
std::string StationPlan::geometry_of(std::string_view row) const {
  const db::Relation &layout = tables_[kSitechan].layout();
  std::string geometry;
  for (const char *name : {"edepth", "hang", "vang"}) {
    const db::RealColumn column(layout, name);
    double value = column.null();
    if (!column.read(row, value)) value = column.null();
    geometry += format_text("%.4f ", value);
  }
  std::string_view description;
  const db::TextColumn column(layout, "descrip");
  if (column.read(row, description) && !column.is_null(description)) {
    geometry += description;
  }
  return geometry;
}

void StationPlan::place_channel(const GatheredChannel &gathered) {
  std::string sta = code_of(gathered.network, gathered.station), chan;
  Placed placed;
  placed.from = &gathered;
  std::string reason = find_chan(gathered, sta, chan);
  if (reason.empty()) reason = check(gathered, sta, chan, placed);
  if (!reason.empty()) {
    refuse(gathered.line, "channel " + gathered.channel.code.substr(0, 40) +
                              " of station " + gathered.station.substr(0, 40) + ": " +
                              reason);
    return;
  }
  enter_codes(gathered, {sta, chan});
  std::vector<Placed> &epochs = channels_[{sta, chan}];
  if (epochs.size() < kMostEpochs) {
    epochs.push_back(std::move(placed));
  } else {
    refuse(gathered.line, "channel " + chan + " of station " + sta + " has more than " +
                              std::to_string(kMostEpochs) + " epochs");
  }
}

/* The codes of a channel in the database, as the event server and kssac map them: those of
 * seedcode, else the channel code with the location code behind it. */
std::string StationPlan::find_chan(const GatheredChannel &gathered, std::string &sta,
                                   std::string &chan) {
  const Channel &channel = gathered.channel;
  chan = channel.code + channel.location;
  if (!has(kSeedcode)) return "";
  const StationTable &codes = table(kSeedcode);
  for (const std::string &net : {gathered.network, std::string()}) {
    const auto known =
        codes.find(1, {net, gathered.station, channel.code, channel.location});
    if (known.empty()) continue;
    sta = codes.text(known.front(), "sta");
    chan = codes.text(known.front(), "chan");
    return "";
  }
  for (const std::size_t row : codes.find(0, {sta, chan})) {
    if (codes.text(row, "seedsta") != gathered.station ||
        codes.text(row, "seedchan") != channel.code ||
        codes.text(row, "loc") != channel.location) {
      return "channel " + chan + " of station " + sta +
             " stands for other codes in seedcode";
    }
  }
  return "";
}

/* Why rows of the channel cannot be made; "" when they can. */
std::string StationPlan::check(const GatheredChannel &gathered, const std::string &sta,
                               const std::string &chan, Placed &placed) {
  const Channel &channel = gathered.channel;
  if (too_long(sta, table(kSite), "sta"))
    return "the station code is too long for site.sta";
  if (table(kSite).find(0, {sta}).empty()) return "its station is not in site";
  if (!can_be_code(chan)) return "the channel code cannot be the key of a row";
  if (too_long(chan, table(kSitechan), "chan")) {
    return "the codes " + chan + " are too long for sitechan.chan";
  }
  if (has(kSeedcode) && (too_long(gathered.station, table(kSeedcode), "seedsta") ||
                         too_long(channel.code, table(kSeedcode), "seedchan") ||
                         too_long(channel.location, table(kSeedcode), "loc"))) {
    return "its codes are too long for seedcode";
  }
  Station place;
  place.lat = channel.lat;
  place.lon = channel.lon;
  const std::string stranger_there = stranger(gathered.network, place, sta);
  if (!stranger_there.empty()) return stranger_there;

  std::int64_t shortened = 0;
  std::string row = table(kSitechan).null_row();
  fill_geometry(channel, edit(kSitechan, row));
  if (!report_.refused.empty()) return report_.refused;
  shortened += report_.shortened;
  placed.geometry = geometry_of(row);
  row = table(kSensor).null_row();
  fill_sensor(channel, edit(kSensor, row));
  if (!report_.refused.empty()) return report_.refused;
  row = table(kInstrument).null_row();
  fill_instrument(channel, gathered.response_file, gathered.response_kind, false,
                  edit(kInstrument, row));
  if (!report_.refused.empty()) return report_.refused;
  counts_.shortened += shortened + report_.shortened;
  return "";
}

void StationPlan::enter_codes(const GatheredChannel &gathered, const Codes &codes) {
  if (!has(kSeedcode)) return;
  StationTable &known = table(kSeedcode);
  const auto rows = known.find(0, {codes.first, codes.second});
  std::string row =
      rows.empty() ? known.null_row() : std::string(known.row(rows.front()));
  RowEdit edited = edit(kSeedcode, row);
  if (rows.empty()) {
    edited.put("sta", std::string_view(codes.first))
        .put("chan", std::string_view(codes.second))
        .put("net", std::string_view(gathered.network))
        .put("seedsta", std::string_view(gathered.station))
        .put("seedchan", std::string_view(gathered.channel.code))
        .put("loc", std::string_view(gathered.channel.location));
    known.add(row);
    networks_of(codes.first).insert(gathered.network);
    networks_of(codes.first).erase("");
  } else if (known.text(rows.front(), "net").empty()) {
    edited.given("net", std::string_view(gathered.network));
    known.set(rows.front(), row);
  }
}

bool StationPlan::plan_channels(const Codes &codes, std::vector<Placed> &channels) {
  std::stable_sort(
      channels.begin(), channels.end(), [](const Placed &a, const Placed &b) {
        return begin_of(a.from->channel.epoch) < begin_of(b.from->channel.epoch);
      });
  drop_repeated(codes, channels);
  std::set<std::int64_t> taken, days;
  std::vector<Run> runs = runs_of(channels);
  for (const Run &run : runs) days.insert(first_day(run.epoch));
  for (Run &run : runs) {
    if (!plan_sitechan(codes, channels, run, taken, days)) return false;
  }
  for (Placed &placed : channels) {
    if (!plan_sensor(codes, placed)) return false;
    count(counts_.channels, placed.change);
  }
  return true;
}

/* Of epochs with one beginning the last in the input stays; others are refused unless they
 * say the same. */
void StationPlan::drop_repeated(const Codes &codes, std::vector<Placed> &channels) {
  std::vector<Placed> kept;
  for (std::size_t i = 0; i < channels.size(); i++) {
    const GatheredChannel &gathered = *channels[i].from;
    const GatheredChannel *const next =
        i + 1 < channels.size() ? channels[i + 1].from : nullptr;
    if (next == nullptr ||
        !same_start(begin_of(gathered.channel.epoch), begin_of(next->channel.epoch))) {
      kept.push_back(std::move(channels[i]));
    } else if (gathered.has_same_content(*next)) {
      count(counts_.channels, Change::kUnchanged);
    } else {
      refuse(gathered.line, "channel " + codes.second + " of station " + codes.first +
                                ": an epoch of the same beginning follows");
    }
  }
  channels = std::move(kept);
}

/* Epochs with one position and orientation that leave no day between them.  Those that
 * begin on one day share a row of sitechan, which has days only, and the last one's position
 * and orientation. */
std::vector<StationPlan::Run> StationPlan::runs_of(std::vector<Placed> &channels) {
  std::vector<Run> runs;
  for (Placed &placed : channels) {
    const Epoch &epoch = placed.from->channel.epoch;
    const bool goes_on =
        !runs.empty() &&
        (first_day(runs.back().epoch) == first_day(epoch) ||
         (runs.back().channels.back()->geometry == placed.geometry &&
          begin_of(epoch) <= end_of(runs.back().epoch) + kSecondsOfDay));
    if (goes_on) {
      if (end_of(epoch) > end_of(runs.back().epoch)) runs.back().epoch.end = epoch.end;
      runs.back().channels.push_back(&placed);
    } else {
      runs.push_back({epoch, {&placed}});
    }
  }
  return runs;
}

/* The row of sitechan that a run goes on: one that begins on its first day, else one of the
 * same position and orientation that meets it, else one without orientation that begins
 * within it, but not one that another run has taken or begins on the day of (`days`: the
 * first days of all runs); -1: none. */
std::int64_t StationPlan::find_sitechan(const Codes &codes, const Run &run,
                                        const std::set<std::int64_t> &taken,
                                        const std::set<std::int64_t> &days) {
  const StationTable &channels = table(kSitechan);
  const std::string &geometry = run.channels.back()->geometry;
  const std::int64_t on = first_day(run.epoch);
  std::int64_t same_day = -1, met = -1, bare = -1;
  for (const std::size_t row : channels.find(0, {codes.first, codes.second})) {
    const auto number = static_cast<std::int64_t>(row);
    if (taken.contains(number)) continue;
    const bool alike = geometry_of(channels.row(row)) == geometry;
    const std::int64_t from = channels.integer(row, "ondate");
    if (from == on && (same_day < 0 || alike)) same_day = number;
    if (alike &&
        begin_of(run.epoch) <=
            end_of_day(channels.integer(row, "offdate")) + kSecondsOfDay &&
        end_of(run.epoch) >= begin_of_day(from) - kSecondsOfDay) {
      met = number;
    }
    if (bare < 0 && !days.contains(from) && begin_of(run.epoch) <= begin_of_day(from) &&
        begin_of_day(from) < end_of(run.epoch) && lacks_orientation(codes, row)) {
      bare = number;
    }
  }
  return same_day >= 0 ? same_day : met >= 0 ? met : bare;
}

/* taken: the rows of sitechan that runs of the channel go on. */
bool StationPlan::plan_sitechan(const Codes &codes, const std::vector<Placed> &channels,
                                Run &run, std::set<std::int64_t> &taken,
                                const std::set<std::int64_t> &days) {
  StationTable &sitechans = table(kSitechan);
  const std::int64_t found = find_sitechan(codes, run, taken, days);
  const auto index = static_cast<std::size_t>(found);
  Epoch epoch = run.epoch;
  std::int64_t chanid = -1;
  if (found >= 0) {
    taken.insert(found);
    chanid = sitechans.integer(index, "chanid");
    const std::int64_t from = sitechans.integer(index, "ondate");
    if (begin_of_day(from) < begin_of(epoch) && from != first_day(epoch)) {
      epoch.start = from == -1 ? kNoTime : begin_of_day(from);
    }
    /* Epochs that the input does not have keep their part of the row. */
    for (const std::size_t row : table(kSensor).find(0, {codes.first, codes.second})) {
      if (table(kSensor).integer(row, "chanid") != chanid) continue;
      const Epoch other{table(kSensor).real(row, "time", kNoTime),
                        table(kSensor).real(row, "endtime", kNoTime)};
      const auto near = std::lower_bound(
          channels.begin(), channels.end(), begin_of(other) - kSameTime,
          [](const Placed &placed, double time) {
            return begin_of(placed.from->channel.epoch) < time;
          });
      const bool in_input =
          near != channels.end() &&
          same_start(begin_of(near->from->channel.epoch), begin_of(other));
      if (!in_input && end_of(other) > end_of(epoch)) epoch.end = other.end;
    }
  }
  std::string row =
      found < 0 ? sitechans.null_row() : std::string(sitechans.row(index));
  fill_geometry(run.channels.back()->from->channel, edit(kSitechan, row));
  RowEdit edited = edit(kSitechan, row);
  edited.put("sta", std::string_view(codes.first))
      .put("chan", std::string_view(codes.second))
      .put("ondate", first_day(epoch));
  if (chanid < 0) {
    if (!take_id("chanid", chanid)) return false;
    edited.put("chanid", chanid);
  }
  const bool stays_open = found >= 0 && epoch.end == kNoTime &&
                          end_of_day(sitechans.integer(index, "offdate")) == kAlways;
  if (!stays_open) edited.put("offdate", last_day(epoch));
  for (Placed *placed : run.channels) placed->chanid = chanid;
  if (found < 0) {
    taken.insert(static_cast<std::int64_t>(sitechans.add(row)));
    for (Placed *placed : run.channels) placed->change = Change::kAdded;
  } else if (row != sitechans.row(index)) {
    if (lacks_orientation(codes, index)) taken_over_.insert(chanid);
    sitechans.set(index, row);
    run.channels.back()->change = Change::kUpdated;
  }
  return true;
}

bool StationPlan::plan_sensor(const Codes &codes, Placed &placed) {
  const GatheredChannel &gathered = *placed.from;
  if (!has_instrument(gathered.channel) && gathered.response_file.empty()) return true;
  StationTable &sensors = table(kSensor);
  std::int64_t known = -1;
  for (const std::size_t row : sensors.find(0, {codes.first, codes.second})) {
    if (same_start(sensors.real(row, "time", kNoTime), gathered.channel.epoch.start)) {
      known = static_cast<std::int64_t>(row);
      break;
    }
  }
  std::int64_t inid = -1;
  bool changed = false;
  if (!plan_instrument(gathered, known, inid, changed)) return false;
  const auto index = static_cast<std::size_t>(known);
  std::string row = known < 0 ? sensors.null_row() : std::string(sensors.row(index));
  fill_sensor(gathered.channel, edit(kSensor, row));
  RowEdit edited = edit(kSensor, row);
  edited.put("sta", std::string_view(codes.first))
      .put("chan", std::string_view(codes.second))
      .put("inid", inid)
      .put("chanid", placed.chanid);
  if (known >= 0) uses_[sensors.integer(index, "inid")]--;
  uses_[inid]++;
  if (known < 0) {
    edited.put("instant", std::string_view("y"));
    sensors.add(row);
    placed.change = Change::kAdded;
  } else if (sensors.set(index, row) || changed) {
    placed.change = std::min(placed.change, Change::kUpdated);
  } else if (placed.change == Change::kAdded) {
    placed.change = Change::kUpdated;  // of a row of sitechan alone
  }
  return true;
}

/* The instrument of a channel: that of its sensor when it agrees, or one that agrees in
 * all, or that of the sensor changed in place when it has no other, or a new one. */
bool StationPlan::plan_instrument(const GatheredChannel &gathered, std::int64_t sensor,
                                  std::int64_t &inid, bool &changed) {
  StationTable &instruments = table(kInstrument);
  std::vector<std::size_t> own;
  if (sensor >= 0) {
    const std::int64_t of_sensor =
        table(kSensor).integer(static_cast<std::size_t>(sensor), "inid");
    own = instruments.find(0, {std::to_string(of_sensor)});
  }
  std::string row =
      own.empty() ? instruments.null_row() : std::string(instruments.row(own.front()));
  const bool had_file = !own.empty() && !instruments.text(own.front(), "dfile").empty();
  std::string file = gathered.response_file;
  if (!file.empty()) {
    files_.insert(file);
    file = gathered_.responses().free_name(file, directory_);
  }
  fill_instrument(gathered.channel, file, gathered.response_kind, had_file,
                  edit(kInstrument, row));
  if (!own.empty() && row == instruments.row(own.front())) {
    inid = instruments.integer(own.front(), "inid");
    return true;
  }
  changed = true;
  const auto alike = instruments.find_like(1, row);
  if (!alike.empty()) {
    inid = instruments.integer(alike.front(), "inid");
    return true;
  }
  if (!own.empty()) {
    inid = instruments.integer(own.front(), "inid");
    if (uses_[inid] == 1) {
      instruments.set(own.front(), row);
      return true;
    }
  }
  if (!take_id("inid", inid)) return false;
  edit(kInstrument, row).put("inid", inid);
  instruments.add(row);
  return true;
}

}  // namespace ksutil::exchange
