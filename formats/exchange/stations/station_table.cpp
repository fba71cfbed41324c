#include "formats/exchange/stations/station_table.h"

#include <algorithm>

#include "formats/exchange/import/gathering.h"
#include "formats/exchange/import/last_id.h"
#include "formats/exchange/stations/station_rows.h"
#include "platform/db/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr char kBetween = '\0';  // between the values of a key

}  // namespace

bool StationTable::open(db::Transaction &step, std::size_t place,
                        const std::vector<Fields> &keys) {
  old_ = step.snapshot(place);
  if (old_ == nullptr) return false;
  step_ = &step;
  place_ = place;
  layout_ = &step.layout(place);
  old_count_ = old_->count();
  null_row_ = db::null_record(*layout_);
  for (const Fields &fields : keys) {
    auto &key = keys_.emplace_back();
    for (const char *field : fields) key.push_back(layout_->find(field));
  }
  indexes_.resize(keys_.size());
  for (std::size_t i = 0; i < size(); i++) index(i);
  return old_->complete();
}

void StationTable::index(std::size_t number) {
  const std::string_view text = row(number);
  if (text.empty()) return;
  for (std::size_t key = 0; key < keys_.size(); key++) {
    indexes_[key].emplace(hash_of_row(key, text), number);
  }
}

std::string StationTable::value_of(std::string_view row, const db::Field &field) const {
  const auto at = static_cast<std::size_t>(field.offset);
  if (at >= row.size()) return "";
  const std::string_view text =
      trimmed(row.substr(at, static_cast<std::size_t>(field.width)));
  return text == field.null_text ? "" : std::string(text);
}

std::uint64_t StationTable::hash_of_row(std::size_t key, std::string_view row) const {
  std::string text;
  for (const db::Field *field : keys_[key]) {
    if (field != nullptr) text += value_of(row, *field);
    text += kBetween;
  }
  return hash_of(text);
}

std::string_view StationTable::row(std::size_t index) const {
  if (index >= static_cast<std::size_t>(old_count_)) {
    return new_[index - static_cast<std::size_t>(old_count_)];
  }
  const auto changed = changed_.find(index);
  return changed == changed_.end() ? old_->row(static_cast<long>(index))
                                   : std::string_view(changed->second);
}

int StationTable::width(std::string_view field) const {
  const db::Field *found = layout_->find(field);
  return found == nullptr ? 0 : found->width;
}

std::vector<std::size_t> StationTable::find(
    std::size_t key, const std::vector<std::string> &values) const {
  std::string text;
  for (const std::string &value : values) text += value + kBetween;
  std::vector<std::size_t> found;
  const auto [begin, end] = indexes_[key].equal_range(hash_of(text));
  for (auto entry = begin; entry != end; ++entry) {
    const std::string_view text_of_row = row(entry->second);
    bool same = true;
    for (std::size_t i = 0; same && i < values.size(); i++) {
      const db::Field *field = keys_[key][i];
      same = field == nullptr || value_of(text_of_row, *field) == values[i];
    }
    if (same) found.push_back(entry->second);
  }
  /* A row that has been changed to and fro has several entries. */
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

std::vector<std::size_t> StationTable::find_like(std::size_t key,
                                                 std::string_view row) const {
  std::vector<std::string> values;
  for (const db::Field *field : keys_[key]) {
    values.push_back(field == nullptr ? "" : value_of(row, *field));
  }
  return find(key, values);
}

std::size_t StationTable::add(std::string row) {
  new_.push_back(std::move(row));
  index(size() - 1);
  return size() - 1;
}

/* Entries of earlier values stay: find() looks at the values. */
bool StationTable::set(std::size_t number, std::string text) {
  if (row(number) == text) return false;
  for (std::size_t key = 0; key < keys_.size(); key++) {
    const std::uint64_t hash = hash_of_row(key, text);
    if (hash != hash_of_row(key, row(number))) indexes_[key].emplace(hash, number);
  }
  if (number >= static_cast<std::size_t>(old_count_)) {
    new_[number - static_cast<std::size_t>(old_count_)] = std::move(text);
  } else if (old_->row(static_cast<long>(number)) == text) {
    changed_.erase(number);
  } else {
    changed_[number] = std::move(text);
  }
  return true;
}

std::string StationTable::text(std::size_t index, std::string_view field) const {
  const db::Field *found = layout_->find(field);
  return found == nullptr ? "" : value_of(row(index), *found);
}

std::int64_t StationTable::integer(std::size_t index, std::string_view field) const {
  const db::IntegerColumn column(*layout_, field);
  std::int64_t value = column.null();
  return column.read(row(index), value) ? value : column.null();
}

double StationTable::real(std::size_t index, std::string_view field,
                          double missing) const {
  const db::RealColumn column(*layout_, field);
  double value = column.null();
  return column.read(row(index), value) && value != column.null() ? value : missing;
}

bool StationTable::write(double now) {
  FillReport report;
  std::vector<std::pair<std::size_t, std::string *>> changed;
  for (auto &[index, text] : changed_) changed.emplace_back(index, &text);
  std::sort(changed.begin(), changed.end());
  for (const auto &[index, text] : changed) {
    RowPut(*layout_, *text, report).put("lddate", now);
    if (!step_->overwrite(place_, static_cast<long>(index), *text)) return false;
  }
  for (std::string &text : new_) {
    RowPut(*layout_, text, report).put("lddate", now);
    if (step_->append(place_, text) < 0) return false;
  }
  return true;
}

std::int64_t StationCounters::take(const std::string &key) {
  const auto known = last_.find(key);
  if (known != last_.end()) return ++known->second;
  LastId last;
  const auto none = [](const std::string &) {
    return std::shared_ptr<const db::Snapshot>();
  };
  if (!find_last_id(store_, lastid_.stored(), key, none, last)) return -1;
  return last_[key] = last.value + 1;
}

bool StationCounters::write(std::string &problem) {
  for (const auto &[key, last] : last_) {
    FillReport report;
    const auto known = lastid_.find(0, {key});
    std::string row =
        known.empty() ? lastid_.null_row() : std::string(lastid_.row(known.front()));
    RowEdit(lastid_.layout(), row, report)
        .put("keyname", std::string_view(key))
        .put("keyvalue", last);
    problem = report.refused;
    if (!problem.empty()) return false;
    if (known.empty()) {
      lastid_.add(row);
    } else {
      lastid_.set(known.front(), row);
    }
  }
  return true;
}

}  // namespace ksutil::exchange
