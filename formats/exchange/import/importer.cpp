#include "formats/exchange/import/importer.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "formats/exchange/import/import_plan.h"
#include "formats/exchange/import/import_tables.h"
#include "platform/clock/clock.h"
#include "platform/db/shared/read_only_tables.h"
#include "platform/elog/elog.h"

namespace ksutil::exchange {
namespace {

bool selected(const ImportOptions &options, const Event &event) {
  const Origin &origin = preferred_origin(event);
  const double magnitude =
      origin.magnitudes.empty() ? -999.0 : origin.magnitudes.front().value;
  return origin.time >= options.after && origin.time < options.before &&
         magnitude >= options.min_magnitude;
}

/* Where there is no table for them, all ids but the event's are not known again: the
 * records count as ones without. */
void forget_ids(Event &event) {
  for (Pick &pick : event.picks) pick.id.clear();
  for (Origin &origin : event.origins) {
    origin.id.clear();
    for (Magnitude &magnitude : origin.magnitudes) magnitude.id.clear();
    for (MomentTensor &tensor : origin.tensors) tensor.id.clear();
  }
}

class Import {
 public:
  Import(ImportTables &tables, Gathering &events, const ImportOptions &options,
         const ImportListener &listener, ImportCounts &counts)
      : events_(events),
        options_(options),
        listener_(listener),
        counts_(counts),
        now_(std_now()),
        tables_(tables),
        plan_(tables, options, counts, now_) {}

  /* New events in the order of their times, then known ones in the order of their rows,
   * so that each table is read once from its beginning to its end. */
  bool run() {
    std::vector<Known> known;
    for (const std::uint32_t index : events_.by_time()) {
      if (!get(index)) return false;
      if (!selected(options_, event_)) {
        counts_.left_out++;
        count_one();
        continue;
      }
      bool by_alias = false;
      const std::int64_t record = plan_.find(event_, by_alias);
      if (record >= 0) {
        known.push_back({record, by_alias, index});
      } else if (!import(-1)) {
        return false;
      }
    }
    std::sort(known.begin(), known.end());
    std::int64_t before = -1;
    for (const Known &item : known) {
      if (!get(item.index)) return false;
      if (item.record == before) {
        refuse("another event of the input is the same one of the database");
        count_one();
      } else if (!import(item.record)) {
        return false;
      }
      before = item.record;
    }
    return tables_.write_counters(now_);
  }

 private:
  /* An event that the database has; those that a further id leads to come after the one
   * with the same row that its own id leads to. */
  struct Known {
    std::int64_t record;
    bool by_alias;
    std::uint32_t index;
    auto operator<=>(const Known &) const = default;  // NOLINT(modernize-use-nullptr)
  };

  bool get(std::uint32_t index) {
    if (events_.get(index, event_)) {
      std::erase_if(event_.aliases,
                    [&](const std::string &id) { return events_.contains(id); });
      if (!tables_.has(kPublicid)) forget_ids(event_);
      return true;
    }
    elog_log(0, "import: %s.\n", events_.problem().c_str());
    return false;
  }

  void count_one() { listener_.reached(++done_); }

  void refuse(const std::string &reason) {
    counts_.refused++;
    listener_.refused(event_.line, reason);
  }

  bool import(std::int64_t record) {
    switch (plan_.import(event_, record)) {
      case ImportPlan::Result::kFailed:
        return false;
      case ImportPlan::Result::kRefused:
        refuse(plan_.reason());
        break;
      case ImportPlan::Result::kDone:
        break;
    }
    count_one();
    return true;
  }

  Gathering &events_;
  const ImportOptions &options_;
  const ImportListener &listener_;
  ImportCounts &counts_;
  const double now_;
  ImportTables &tables_;
  ImportPlan plan_;
  Event event_;
  std::int64_t done_ = 0;
};

}  // namespace

Imported import_events(db::DatabaseStore &store, Gathering &events,
                       const ImportOptions &options, const ImportListener &listener,
                       ImportCounts &counts) {
  Needs needs = events.needs();
  if (store.schema()->find("publicid") == nullptr) {
    needs.bare_picks = needs.bare_origins = true;
  }
  const std::vector<std::string> names = ImportTables::names(store, needs);
  if (names.empty()) return Imported::kFailed;
  bool too_strict = false;
  const auto work = [&](db::Transaction &step) {
    listener.begun(ImportListener::Stage::kIndexing);
    ImportTables tables(store, step, names, needs);
    if (!tables.open()) return false;
    listener.begun(ImportListener::Stage::kImporting);
    if (!Import(tables, events, options, listener, counts).run()) return false;
    too_strict = options.strict && (counts.refused > 0 || counts.shortened > 0 ||
                                    !counts.without_place.empty());
    if (!too_strict) listener.begun(ImportListener::Stage::kCopying);
    return !too_strict;
  };
  bool done;
  if (options.dry_run) {
    db::ReadOnlyTables step(store, names);
    done = work(step);
  } else {
    done = store.transaction(names, work);
  }
  return done ? Imported::kYes : too_strict ? Imported::kStrict : Imported::kFailed;
}

}  // namespace ksutil::exchange
