#include "waveforms/ksdsseis.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/failure.h"
#include "platform/expr/expr.h"
#include "waveforms/dataset/internal/data_set.h"

using namespace ksutil;
using namespace ksutil::dataset;

namespace {

constexpr char kOpen[] = "ksdsseis_open";

/* A code as the field of an expression. */
class CodeField : public expr::Fields {
 public:
  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    slot = 0;
    type = expr::Type::kText;
    return name == "code";
  }
};

class CodeRecord : public expr::Record {
 public:
  explicit CodeRecord(std::string_view code) : code_(code) {}
  bool value(int, expr::Value &result) const override {
    result = expr::Value::of_text(code_);
    return true;
  }

 private:
  std::string_view code_;
};

/* A regular expression that codes are to match as a whole. */
class CodePattern {
 public:
  /* False, with a message, for one that does not compile. */
  bool compile(const char *pattern) {
    if (pattern == nullptr || *pattern == '\0') return true;
    std::string text = "code =~ \"^(";
    for (const char *c = pattern; *c != '\0'; ++c) {
      if (*c == '"') return fail(kOpen, "A pattern has a quotation mark: %s", pattern);
      text += *c;
    }
    text += ")$\"";
    expr::Error error;
    program_ = expr::Program::compile(text, CodeField(), error);
    if (program_ != nullptr) return true;
    return fail(kOpen, "Pattern '%s': %s", pattern, error.message.c_str());
  }
  bool matches(std::string_view code) {
    if (program_ == nullptr) return true;
    expr::Value value;
    return program_->evaluate(CodeRecord(code), workspace_, value) &&
           value.integer != 0;
  }

 private:
  std::unique_ptr<const expr::Program> program_;
  expr::Workspace workspace_;
};

template <std::size_t kSize>
void set_text(char (&to)[kSize], const std::string &text) {
  const std::size_t length = std::min(text.size(), kSize - 1);
  std::memcpy(to, text.data(), length);
  to[length] = '\0';
}

/* Collects the rows of wfdisc that match. */
class RowCollector {
 public:
  explicit RowCollector(ksdsseis &set) : set_(set) {}

  bool collect(Dbptr rows, CodePattern &sta, CodePattern &chan) {
    long count = 0;
    if (dbquery(rows, dbq_record_count, &count) != 0) return false;
    for (rows.record = 0; rows.record < count; ++rows.record) {
      if (!take(rows, sta, chan)) return false;
    }
    for (auto &[codes, found] : found_) {
      Channel &channel = set_.channels.emplace_back();
      channel.rows = std::move(found);
      std::stable_sort(
          channel.rows.begin(), channel.rows.end(),
          [](const auto &a, const auto &b) { return a.time() < b.time(); });
    }
    return true;
  }

 private:
  /* The codes are looked at first: rows of other channels need not make sense. */
  bool take(Dbptr record, CodePattern &sta, CodePattern &chan) {
    Dbptr part;
    if (!wfdisc_part(record, part)) return false;
    db::TableStore *const store = db::table_store(part);
    if (store == nullptr) return false;
    if (layout_ != &store->layout()) {
      layout_ = &store->layout();
      sta_ = db::TextColumn(*layout_, "sta");
      chan_ = db::TextColumn(*layout_, "chan");
      lddate_ = db::RealColumn(*layout_, "lddate");
    }
    ElogScope messages;
    const db::RowText text = db::record_text(part);
    std::string_view code;
    if (text.empty() || !sta_.read(text, code)) return unusable();
    if (!sta.matches(trim(code))) return true;
    if (!chan_.read(text, code)) return unusable();
    if (!chan.matches(trim(code))) return true;
    WaveformRow row;
    row.record = part;
    if (!read_segment(part, row.segment)) return unusable();
    row.count = row.segment.nsamp;
    if (set_.tstart != 0.0 || set_.tend != 0.0) {
      row.count = samples_between(row.segment, set_.tstart, set_.tend, row.first);
    }
    if (row.count <= 0) return row.segment.nsamp > 0 || unusable();
    if (!lddate_.read(text, row.lddate)) row.lddate = lddate_.null();
    found_[{row.segment.sta, row.segment.chan}].push_back(std::move(row));
    return true;
  }

  static std::string_view trim(std::string_view code) {
    while (!code.empty() && code.front() == ' ') code.remove_prefix(1);
    while (!code.empty() && code.back() == ' ') code.remove_suffix(1);
    return code;
  }

  bool unusable() {
    ++set_.unusable;
    return true;
  }

  static bool wfdisc_part(Dbptr record, Dbptr &part) {
    std::vector<Dbptr> parts;
    if (!db::view_parts(record, parts)) return false;
    for (const Dbptr &each : parts) {
      db::TableStore *const store = db::table_store(each);
      if (store == nullptr) return false;
      if (store->layout().name != "wfdisc") continue;
      part = each;
      return true;
    }
    return fail(kOpen, "The view has no wfdisc");
  }

  ksdsseis &set_;
  const db::Relation *layout_ = nullptr;
  db::TextColumn sta_, chan_;
  db::RealColumn lddate_;
  std::map<std::pair<std::string, std::string>, std::vector<WaveformRow>> found_;
};

/* The sample rate that most samples have; rates that differ by rounding count as one. */
double usual_samprate(const std::vector<WaveformRow> &rows) {
  std::vector<std::pair<double, double>> rates;  // rate, samples
  for (const WaveformRow &row : rows) {
    rates.emplace_back(row.segment.samprate, static_cast<double>(row.count));
  }
  std::sort(rates.begin(), rates.end());
  double best = rates.front().first, most = 0.0;
  for (std::size_t i = 0; i < rates.size();) {
    const double rate = rates[i].first;
    double samples = 0.0;
    for (; i < rates.size() && same_samprate(rates[i].first, rate); ++i) {
      samples += rates[i].second;
    }
    if (samples > most) {
      most = samples;
      best = rate;
    }
  }
  return best;
}

/* What wfdisc says of a channel; the rest is null. */
void describe_rows(Channel &channel) {
  ksdsseis_channel &to = channel.description;
  to = ksdsseis_channel{};
  const WaveformRow &first = channel.rows.front();
  set_text(to.sta, first.segment.sta);
  set_text(to.chan, first.segment.chan);
  to.lat = to.lon = to.elev = -999.0;
  to.edepth = to.hang = to.vang = -1.0;
  to.calratio = 1.0;
  to.samprate = usual_samprate(channel.rows);
  to.calib = first.segment.calib;
  to.calper = first.segment.calper > 0.0 ? first.segment.calper : -1.0;
  for (const char *const unit : {"D", "V", "A"}) {
    if (first.segment.segtype == unit) set_text(to.segtype, unit);
  }
  to.time = first.time();
  to.endtime = first.endtime();
  double nsamp = 0.0;
  for (const WaveformRow &row : channel.rows) {
    to.endtime = std::max(to.endtime, row.endtime());
    nsamp += static_cast<double>(row.count);
    if (!same_samprate(row.segment.samprate, to.samprate)) {
      to.missing |= KSDSSEIS_OTHER_SAMPRATE;
    }
  }
  to.nsegments = static_cast<long>(channel.rows.size());
  /* The counts are those of rows, which may promise anything. */
  to.nsamp = nsamp < 9e18 ? static_cast<long>(nsamp) : std::numeric_limits<long>::max();
}

/* The rows to look at: those given, or all of wfdisc. */
bool find_rows(Dbptr db, Dbptr &rows) {
  if (db.database < 0) return fail(kOpen, "The database is not open");
  rows = db.table >= 0 ? db : dblookup(db, "", "wfdisc", "", "");
  rows.record = dbALL;
  return rows.table != dbINVALID;
}

}  // namespace

namespace ksutil::dataset {

bool same_samprate(double samprate, double of_channel) {
  return std::abs(samprate / of_channel - 1.0) < 1e-4;
}

std::string channel_name(const ksdsseis_channel &channel) {
  const std::string sta = channel.seedsta[0] != '\0' ? channel.seedsta : channel.sta;
  const std::string chan =
      channel.seedchan[0] != '\0' ? channel.seedchan : channel.chan;
  if (channel.net[0] == '\0') return sta + "." + chan;
  return std::string(channel.net) + "." + sta + "." + channel.loc + "." + chan;
}

Channel *find_channel(const char *who, ksdsseis *set, int channel) {
  if (set == nullptr) return fail(who, "No data set given");
  if (channel < 0 || static_cast<std::size_t>(channel) >= set->channels.size()) {
    return fail(who, "There is no channel %d", channel);
  }
  return &set->channels[static_cast<std::size_t>(channel)];
}

}  // namespace ksutil::dataset

ksdsseis *ksdsseis_open(Dbptr db, const char *sta, const char *chan, double tstart,
                        double tend) {
  return at_boundary(kOpen, [&]() -> ksdsseis * {
    CodePattern stations, channels;
    if (!stations.compile(sta) || !channels.compile(chan)) return nullptr;
    if (!(tstart <= tend)) {
      return fail(kOpen, "The window ends before it begins");
    }
    auto set = std::make_unique<ksdsseis>(ksdsseis{db, tstart, tend, 0, {}});
    Dbptr rows;
    if (!find_rows(db, rows) || !RowCollector(*set).collect(rows, stations, channels)) {
      return fail(kOpen, "Cannot read the rows of wfdisc");
    }
    for (Channel &channel : set->channels) describe_rows(channel);
    describe_channels(db, set->channels);
    return set.release();
  });
}

void ksdsseis_close(ksdsseis *set) { delete set; }

int ksdsseis_count(const ksdsseis *set) {
  return set == nullptr ? -1 : static_cast<int>(set->channels.size());
}

long ksdsseis_unusable(const ksdsseis *set) {
  return set == nullptr ? -1 : set->unusable;
}

const ksdsseis_channel *ksdsseis_describe(const ksdsseis *set, int channel) {
  const Channel *const found =
      find_channel("ksdsseis_describe", const_cast<ksdsseis *>(set), channel);
  return found == nullptr ? nullptr : &found->description;
}

int ksdsseis_get_segment(const ksdsseis *set, int channel, int segment, double *time,
                         double *endtime, double *samprate) {
  constexpr char kSelf[] = "ksdsseis_get_segment";
  const Channel *const found =
      find_channel(kSelf, const_cast<ksdsseis *>(set), channel);
  if (found == nullptr) return -1;
  if (segment < 0 || static_cast<std::size_t>(segment) >= found->rows.size()) {
    return fail(kSelf, "There is no segment %d", segment);
  }
  const WaveformRow &row = found->rows[static_cast<std::size_t>(segment)];
  if (time != nullptr) *time = row.time();
  if (endtime != nullptr) *endtime = row.endtime();
  if (samprate != nullptr) *samprate = row.segment.samprate;
  return 0;
}

int ksdsseis_find(const ksdsseis *set, const char *sta, const char *chan) {
  if (set == nullptr || sta == nullptr || chan == nullptr) return -1;
  for (std::size_t i = 0; i < set->channels.size(); ++i) {
    const ksdsseis_channel &each = set->channels[i].description;
    if (std::strcmp(each.sta, sta) == 0 && std::strcmp(each.chan, chan) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}
