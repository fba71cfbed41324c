/* KSEventView: reads the tree of events into records. */
#include <vector>

#include "core/register.h"
#include "events/reading/internal/read_rows.h"
#include "events/view/internal/view_state.h"

namespace ksutil::events {
namespace {

constexpr const char *kNoRecord = "no record is given";

/* Collects the events whose preferred origin is missing.  They are complained about
 * after the reading, because a complaint prints, and the database must not wait for a
 * terminal. */
class Fallbacks {
 public:
  void note(const EVEvent &event) {
    const EVOrigin *const chosen = event.origins.ptr(event.pref_origin);
    if (chosen == nullptr || chosen->orid == event.prefor) return;
    noted_.push_back({event.prefor, event.evid, chosen->orid});
  }
  void complain() const {
    for (const Fallback &fallback : noted_) {
      ks_complain(0,
                  "KSEventView::refreshEvent: Cannot find preferred origin %ld for "
                  "evid %ld - assigning %ld\n",
                  static_cast<long>(fallback.prefor), static_cast<long>(fallback.evid),
                  static_cast<long>(fallback.orid));
    }
  }

 private:
  struct Fallback {
    int64_t prefor, evid, orid;
  };
  std::vector<Fallback> noted_;
};

/* Reads a row into a source record and puts it into a record of the owner's. */
template <class Source, class Record, class Read>
int read_record(ViewState &state, const char *who, unsigned tables, Record *record,
                const Read &read) {
  if (record == nullptr) return fail(who, "%s", kNoRecord);
  const ReadingName name{who, kTablesUnreadable, kTablesUnreadable};
  return read_rows_quietly(state.database, name, tables, [&](TreeReader &reader) {
    Source source;
    const int result = read(reader, source);
    if (result != 0) return result;
    state.records.replace(*record, state.records.make(reader, source));
    return 0;
  });
}

/* Reads the record of an id, which read(reader, source) looks up, into a new one; null
 * when there is no such row, or after a failure. */
template <class Source, class Read>
auto find_record(ViewState &state, const ReadingName &name, const Read &read) {
  decltype(state.records.make(std::declval<TreeReader &>(), Source()).get()) found =
      nullptr;
  read_rows_quietly(state.database, name, kReadList, [&](TreeReader &reader) {
    Source source;
    const int result = read(reader, source);
    if (result == kNoRow) return 0;
    if (result != 0) return kFailed;
    found = state.records.make(reader, source).release();
    return 0;
  });
  return found;
}

/* The associations of an origin; rows that cannot be read are left out with result
 * 10. */
int read_associations(ViewState &state, TreeReader &reader, KSEVOrigin &origin) {
  EVOrigin source;
  source.orid = origin.orid;
  const int result = reader.read_associations(source);
  if (result < 0) return result;
  ViewRecords &records = state.records;
  records.replace(origin.associations,
                  records.make_list<KSEVAssociation>(reader, source.associations));
  return result;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;
using ksutil::fail;

int KSEventView::refreshEvents(Tbl **events) {
  constexpr const char *kWho = "KSEventView::refreshEvents";
  if (events == nullptr) return fail(kWho, "no place for the list is given");
  Fallbacks fallbacks;
  const ReadingName name{kWho, kTablesUnreadable, "refreshEvent() error"};
  const int result =
      read_rows(state_->database, name, kReadList, [&](TreeReader &reader) {
        auto list = state_->records.new_list<KSEVEvent>();
        fallbacks = Fallbacks();
        MessagesOfFailure messages;
        long order = 0;
        for (long recno = 0; recno < reader.event_count(); recno++) {
          EVEvent event;
          const int read = messages.note(reader.read_event(recno, event, &order));
          if (read < 0) return read;
          if (read != 0) continue;
          fallbacks.note(event);
          ViewRecords::push(list, state_->records.make(reader, event));
        }
        *events = list.release();
        return 0;
      });
  fallbacks.complain();
  return result;
}

int KSEventView::refreshEvent(long recno, KSEVEvent *event, long *order) {
  Fallbacks fallbacks;
  const int result =
      read_record<EVEvent>(*state_, "KSEventView::refreshEvent", kReadList, event,
                           [&](TreeReader &reader, EVEvent &source) {
                             const int read = reader.read_event(recno, source, order);
                             if (read == 0) fallbacks.note(source);
                             return read;
                           });
  fallbacks.complain();
  return result;
}

int KSEventView::refreshOrigin(long recno, KSEVOrigin *origin) {
  return read_record<EVOrigin>(*state_, "KSEventView::refreshOrigin", kReadList, origin,
                               [&](TreeReader &reader, EVOrigin &source) {
                                 return reader.read_origin(recno, source);
                               });
}

int KSEventView::refreshAssociations(KSEVEvent *event) {
  constexpr const char *kWho = "KSEventView::refreshAssociations";
  if (event == nullptr) return fail(kWho, "%s", kNoRecord);
  for (long i = 0; i < counttbl(event->origins); i++) {
    if (gettbl(event->origins, i) == nullptr) return fail(kWho, "%s", kNoRecord);
  }
  const ReadingName name{kWho, kTablesUnreadable, kTablesUnreadable};
  return read_rows_quietly(
      state_->database, name, kReadList | kReadExpansion, [&](TreeReader &reader) {
        int result = 0;
        for (long i = 0; i < counttbl(event->origins) && result >= 0; i++) {
          auto &origin = *static_cast<KSEVOrigin *>(gettbl(event->origins, i));
          result = graver(result, read_associations(*state_, reader, origin));
        }
        return result;
      });
}

int KSEventView::refreshAssociations(KSEVOrigin *origin) {
  constexpr const char *kWho = "KSEventView::refreshAssociations";
  if (origin == nullptr) return fail(kWho, "%s", kNoRecord);
  const ReadingName name{kWho, kTablesUnreadable, kTablesUnreadable};
  return read_rows_quietly(
      state_->database, name, kReadList | kReadExpansion,
      [&](TreeReader &reader) { return read_associations(*state_, reader, *origin); });
}

int KSEventView::refreshAssociation(KSEVOrigin *origin, long recno,
                                    KSEVAssociation *association) {
  constexpr const char *kWho = "KSEventView::refreshAssociation";
  bool strange = false;
  const int result = read_record<EVAssociation>(
      *state_, kWho, kReadList | kReadExpansion, association,
      [&](TreeReader &reader, EVAssociation &source) {
        const int read = reader.read_association(recno, source);
        if (read != 0 || origin == nullptr) return read;
        int64_t orid = -1;
        const ksutil::db::RowText::Reading row(source.record_assoc);
        strange =
            !reader.assoc_columns().orid.read(row.text(), orid) || orid != origin->orid;
        return strange ? kUnreadable : 0;
      });
  return strange ? fail(kWho, "the row is of another origin") : result;
}

int KSEventView::refreshStamags(KSEVMagnitude *magnitude) {
  constexpr const char *kWho = "KSEventView::refreshStamags";
  if (magnitude == nullptr) return fail(kWho, "%s", kNoRecord);
  const ReadingName name{kWho, kTablesUnreadable, kTablesUnreadable};
  return read_rows_quietly(
      state_->database, name, kReadList | kReadExpansion, [&](TreeReader &reader) {
        if (magnitude->record_netmag == nullptr) return kUnreadable;
        EVMagnitude source;
        source.record_netmag = magnitude->record_netmag;
        const int result = reader.read_stamags(source);
        if (result < 0) return result;
        ViewRecords &records = state_->records;
        records.replace(magnitude->stamags,
                        records.make_list<KSEVStamag>(reader, source.stamags));
        return result;
      });
}

int KSEventView::refreshStamag(long recno, KSEVStamag *stamag) {
  return read_record<EVStamag>(*state_, "KSEventView::refreshStamag",
                               kReadList | kReadExpansion, stamag,
                               [&](TreeReader &reader, EVStamag &source) {
                                 return reader.read_stamag(recno, source);
                               });
}

KSEVEvent *KSEventView::findEvid(long evid) {
  Fallbacks fallbacks;
  KSEVEvent *const found = find_record<EVEvent>(
      *state_,
      {"KSEventView::findEvid", "dbmatches(event) error", "refreshEvent() error"},
      [&](TreeReader &reader, EVEvent &source) {
        const int result = reader.read_event_of(evid, 0, source);
        if (result == 0) fallbacks.note(source);
        return result;
      });
  fallbacks.complain();
  return found;
}

KSEVOrigin *KSEventView::findOrid(long orid) {
  return find_record<EVOrigin>(
      *state_,
      {"KSEventView::findOrid", "dbmatches(origin) error", "refreshOrigin() error"},
      [&](TreeReader &reader, EVOrigin &source) {
        return reader.read_origin_of(orid, source);
      });
}
