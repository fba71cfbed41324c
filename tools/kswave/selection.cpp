#include "tools/kswave/selection.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "tools/common/cli.h"
#include "tools/common/options.h"

namespace ksutil::tools {
namespace {

/* Reads a date or epoch seconds; an empty text leaves the time as it is. */
bool read_time(const std::string &text, double &time) {
  double read;
  if (text.empty()) return true;
  if (!parse_real(text, read) && !parse_date_text(text, read)) return false;
  if (!std::isfinite(read)) return false;
  time = read;
  return true;
}

std::string fault_of_time(const std::string &text) {
  double time = 0.0;
  return read_time(text, time) ? "" : "'" + text + "' is not a time";
}

/* The fault of a list of frequencies, for the parser. */
template <std::size_t kCount>
std::string fault_of_frequencies(const std::string &text) {
  std::vector<double> frequencies;
  if (parse_frequencies(text, kCount, frequencies)) return "";
  return "'" + text + "' is not a list of " + std::to_string(kCount) +
         " frequencies in Hz that ascend";
}

/* Without ends, as for all times. */
bool window_of(const Selection &selection, double &tstart, double &tend) {
  tstart = tend = 0.0;
  if (selection.start.empty() && selection.end.empty()) return true;
  tstart = -std::numeric_limits<double>::infinity();
  tend = std::numeric_limits<double>::infinity();
  if (!read_time(selection.start, tstart) || !read_time(selection.end, tend)) {
    return false;
  }
  if (tstart <= tend) return true;
  complain("--end is before --start");
  return false;
}

}  // namespace

bool parse_frequencies(const std::string &text, std::size_t count,
                       std::vector<double> &frequencies) {
  std::vector<double> found;
  for (const std::string &item : split_list(text)) {
    double value;
    if (!parse_real(item, value) || !std::isfinite(value) || value < 0.0) return false;
    /* A filter with one corner has 0 for the other. */
    if (!found.empty() && value != 0.0 && value <= found.back()) return false;
    found.push_back(value);
  }
  if (found.size() != count) return false;
  frequencies = std::move(found);
  return true;
}

void add_selection(CLI::App &command, Selection &selection) {
  add_database(command, selection.database);
  command.add_option("--sta", selection.sta,
                     "Stations: a regular expression for the whole code");
  command.add_option("--chan", selection.chan,
                     "Channels: a regular expression for the whole code");
  command
      .add_option("--start", selection.start,
                  "Nothing before this time: a date or epoch seconds")
      ->check(fault_of_time);
  command.add_option("--end", selection.end, "Nothing after this time")
      ->check(fault_of_time);
}

ChannelSet::ChannelSet(const Selection &selection, const char *mode)
    : name_(selection.database), database_(selection.database, mode) {
  double tstart, tend;
  if (!database_) return;
  /* News of an interrupted change is not a failure. */
  if (anything_registered()) print_register();
  if (!window_of(selection, tstart, tend)) return;
  set_ = ksdsseis_open(database_.get(), selection.sta.c_str(), selection.chan.c_str(),
                       tstart, tend);
  if (set_ == nullptr || count() > 0) return;
  report();
  complain("no waveforms of these channels and times in " + name_);
  ksdsseis_close(set_);
  set_ = nullptr;
}

int ChannelSet::report() const {
  const long unusable = ksdsseis_unusable(set_);
  /* Tables that cannot be read count as missing; their messages tell. */
  if (unusable <= 0) return anything_registered() ? kFailure : kOk;
  complain(std::to_string(unusable) + (unusable == 1 ? " row" : " rows") +
           " of wfdisc cannot be used; see 'ksdb verify " + name_ + "'");
  return kFailure;
}

std::string channel_name(const ksdsseis_channel &channel) {
  const std::string sta = channel.seedsta[0] != '\0' ? channel.seedsta : channel.sta;
  const std::string chan =
      channel.seedchan[0] != '\0' ? channel.seedchan : channel.chan;
  if (channel.net[0] == '\0') return sta + "." + chan;
  return std::string(channel.net) + "." + sta + "." + channel.loc + "." + chan;
}

void add_processing(CLI::App &command, Processing &processing) {
  command
      .add_option(
          "--filter", processing.filter,
          "Butterworth filter: LOW,HIGH in Hz; 0 for a corner that is not there")
      ->check(fault_of_frequencies<2>);
  command.add_option("--order", processing.order, "Order of the filter")
      ->check(whole_number(1, 10));
  command
      .add_option("--motion", processing.motion,
                  "Ground motion in place of counts: D, V or A (m, m/s, m/s^2)")
      ->check(CLI::IsMember({"D", "V", "A"}));
  command
      .add_option("--corners", processing.corners,
                  "Pre-filter of --motion: four frequencies in Hz")
      ->check(fault_of_frequencies<4>);
  command
      .add_option("--water-level", processing.water_level,
                  "Of --motion: dB below the largest response; 0: none")
      ->check(number_between(0, 1000));
  command
      .add_option("--samprate", processing.samprate,
                  "Resample to this rate in Hz, without aliasing")
      ->check(number_between(1e-4, 1e5));
  command.add_flag("--correct-clock", processing.correct_clock,
                   "True times: add tshift of sensor to those of the records");
}

Series::Series(const ChannelSet &set, int channel, const Processing &processing) {
  if (ksdsseis_read(set.get(), channel, tag_) == nullptr) return;
  std::vector<double> corners, filter;
  if (!processing.motion.empty()) {
    const bool given = parse_frequencies(processing.corners, 4, corners);
    if (ksdsseis_deconvolve(set.get(), channel, tag_, processing.motion.c_str(),
                            given ? corners.data() : nullptr,
                            processing.water_level) != 0) {
      return;
    }
  }
  if (parse_frequencies(processing.filter, 2, filter) &&
      ksvector2_filter(tag_, filter[0], filter[1], processing.order, 0) != 0) {
    return;
  }
  if (processing.samprate > 0.0) {
    char made[KS_TAG_SIZE] = "";
    const std::string name = channel_name(set.channel(channel));
    if (ksdsseis_resample(tag_, processing.samprate, name.c_str(), made) == nullptr) {
      return;
    }
    ksvector2_free(tag_);
    std::memcpy(tag_, made, sizeof made);
  }
  ksvector2 *const vector = ksvector2_get_vector(tag_);
  if (vector != nullptr && processing.correct_clock) {
    vector->time += set.channel(channel).tshift;
  }
  vector_ = vector;
}

std::string Series::unit(const Processing &processing) {
  if (processing.motion == "D") return "displacement (m)";
  if (processing.motion == "V") return "velocity (m/s)";
  if (processing.motion == "A") return "acceleration (m/s\xC2\xB2)";
  return "counts";
}

}  // namespace ksutil::tools
