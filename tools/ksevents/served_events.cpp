#include "tools/ksevents/served_events.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/owners.h"
#include "platform/stock/shared_work.h"
#include "tools/common/messages.h"
#include "tools/common/open_database.h"

namespace ksutil::tools {
namespace {

/* The fields without which the server cannot use a row. */
struct NeededFields {
  const char *table;
  std::vector<const char *> fields;
};

const std::vector<NeededFields> &needed_fields() {
  static const std::vector<NeededFields> needed = {
      {"event", {"evid", "prefor", "lddate"}},
      {"origin",
       {"time", "orid", "evid", "mb", "mbid", "ms", "msid", "ml", "mlid", "lddate"}},
      {"origerr", {"orid"}},
      {"netmag", {"magid", "orid", "magtype", "magnitude", "lddate"}},
      {"mt", {"orid", "lddate"}}};
  return needed;
}

/* The readers of some fields of a layout, as far as it has them. */
class NeededColumns {
 public:
  NeededColumns(const db::Relation &layout, const std::vector<const char *> &names) {
    for (const char *name : names) {
      const db::Field *const field = layout.find(name);
      if (field == nullptr) continue;
      switch (field->type) {
        case db::FieldType::kInteger:
        case db::FieldType::kYearday:
          integers_.emplace_back(layout, name);
          break;
        case db::FieldType::kReal:
        case db::FieldType::kTime:
        case db::FieldType::kDate:
          reals_.emplace_back(layout, name);
          break;
        case db::FieldType::kText:
          break;  // any text can be read
        case db::FieldType::kPointer:
          never_ = true;
          break;
      }
    }
  }

  bool all_readable(std::string_view row) const {
    std::int64_t integer = 0;
    double real = 0.0;
    return !never_ && !row.empty() &&
           std::all_of(integers_.begin(), integers_.end(),
                       [&](const auto &column) { return column.read(row, integer); }) &&
           std::all_of(reals_.begin(), reals_.end(),
                       [&](const auto &column) { return column.read(row, real); });
  }

 private:
  std::vector<db::IntegerColumn> integers_;
  std::vector<db::RealColumn> reals_;
  bool never_ = false;
};

/* Counts the rows that cannot be read, of those that it is given. */
class UnreadableRows final : public db::RowTaker {
 public:
  explicit UnreadableRows(const NeededColumns &columns) : columns_(columns) {}

  bool take(unsigned sharer, long, std::size_t count,
            std::string_view rows) noexcept override {
    const std::size_t length = rows.size() / count;
    for (; !rows.empty(); rows.remove_prefix(length)) {
      if (!columns_.all_readable(rows.substr(0, length))) counts_[sharer]++;
    }
    return true;
  }
  long count() const { return counts_[0] + counts_[1]; }

 private:
  static_assert(kWorkSharers == 2);
  const NeededColumns &columns_;
  long counts_[kWorkSharers] = {};
};

long count_unreadable(const OpenDatabase &database, const NeededFields &needed) {
  const ElogScope quiet;
  const auto rows = db::table_snapshot(database.table(needed.table));
  if (rows == nullptr) return 0;  // the schema has no such table
  const NeededColumns columns(rows->layout(), needed.fields);
  UnreadableRows taker(columns);
  const std::vector<db::RowRange> left = rows->scan(taker);
  long count = taker.count();
  for (const db::RowRange &range : left) {
    for (long i = range.first; i < range.end; i++) {
      if (!columns.all_readable(rows->row(i))) count++;
    }
  }
  return count;
}

}  // namespace

long unreadable_records(const std::string &database) {
  const OpenDatabase opened(database, "r");
  long count = 0;
  if (!opened) return count;
  for (const NeededFields &needed : needed_fields()) {
    count += count_unreadable(opened, needed);
  }
  return count;
}

ServedEvents::ServedEvents(const std::string &database, int max_events) {
  /* Try to open it here first: a server that cannot open its database prints messages
   * of its own. */
  if (!OpenDatabase(database, "r")) return;
  /* Opening may have finished an interrupted import, or found one that it may not finish,
   * which is news and not a failure. */
  const std::vector<std::string> news = registered_causes();
  if (!news.empty()) print_register();
  name_ = database;
  server_ = std::make_unique<EVServer>(database, 0, max_events, -1);
  if (!news.empty() && registered_causes() == news) elog_clear_register(0);
  if (anything_registered() && unreadable() > 0) {
    elog_clear_register(0);  // each such record has left a message
  }
  good_ = !anything_registered();
}

long ServedEvents::unreadable() {
  if (!unreadable_) unreadable_ = unreadable_records(name_);
  return *unreadable_;
}

Table<EVEvent> ServedEvents::events() {
  server_->grabEventsLock();
  Table<EVEvent> events = server_->getEvents();
  server_->releaseEventsLock();
  return events;
}

}  // namespace ksutil::tools
