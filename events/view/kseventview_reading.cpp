/* Reading the tree of events into records. */
#include <vector>

#include "events/view/internal/view_reading.h"

namespace ksutil::events {
namespace {

/* Events whose preferred origin is not to be found.  They are complained about when the
 * reading is over, as a complaint prints and so takes its time. */
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

int read_event_list(ViewState &state, TreeReader &reader, Fallbacks &fallbacks,
                    Tbl *&events) {
  auto list = state.records.new_list<KSEVEvent>();
  MessagesOfFailure messages;
  long order = 0;
  for (long recno = 0; recno < reader.event_count(); recno++) {
    EVEvent event;
    const int result = messages.note(reader.read_event(recno, event, &order));
    if (result < 0) return view_failure("refreshEvents", "refreshEvent() error");
    if (result != 0) continue;
    fallbacks.note(event);
    ViewRecords::push(list, state.records.make(reader, event));
  }
  events = list.release();
  return 0;
}

/* Reads a row into a source record and puts it into a record of the owner's. */
template <class Source, class Record, class Read>
int read_row(ViewState &state, const char *function, TreeReader &reader, Record &record,
             Read read) {
  MessagesOfFailure messages;
  Source source;
  const int result = messages.note(read(source));
  if (result < 0) return view_failure(function, "cannot read the tables");
  if (result == 0) state.records.replace(record, state.records.make(reader, source));
  return result;
}

/* The associations of an origin; rows that cannot be read are left out with result 10. */
int read_associations(ViewState &state, TreeReader &reader, KSEVOrigin &origin) {
  MessagesOfFailure messages;
  EVOrigin source;
  source.orid = origin.orid;
  const int result = messages.note(reader.read_associations(source));
  if (result < 0) return view_failure("refreshAssociations", "cannot read the tables");
  ViewRecords &records = state.records;
  records.replace(origin.associations,
                  records.make_list<KSEVAssociation>(reader, source.associations));
  return result;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

int KSEventView::refreshEvents(Tbl **events) {
  Fallbacks fallbacks;
  const int result =
      with_tables(*state_, {"refreshEvents"}, bind_list, [&](TreeReader &reader) {
        return read_event_list(*state_, reader, fallbacks, *events);
      });
  fallbacks.complain();
  return result;
}

int KSEventView::refreshEvent(long recno, KSEVEvent *event, long *order) {
  Fallbacks fallbacks;
  const int result =
      with_record(*state_, {"refreshEvent"}, event, bind_list, [&](TreeReader &reader) {
        return read_row<EVEvent>(
            *state_, "refreshEvent", reader, *event, [&](EVEvent &source) {
              const int read = reader.read_event(recno, source, order);
              if (read == 0) fallbacks.note(source);
              return read;
            });
      });
  fallbacks.complain();
  return result;
}

int KSEventView::refreshOrigin(long recno, KSEVOrigin *origin) {
  return with_record(
      *state_, {"refreshOrigin"}, origin, bind_list, [&](TreeReader &reader) {
        return read_row<EVOrigin>(
            *state_, "refreshOrigin", reader, *origin,
            [&](EVOrigin &source) { return reader.read_origin(recno, source); });
      });
}

int KSEventView::refreshAssociations(KSEVEvent *event) {
  return with_record(
      *state_, {"refreshAssociations"}, event, bind_all, [&](TreeReader &reader) {
        int result = 0;
        for (long i = 0; i < counttbl(event->origins) && result >= 0; i++) {
          auto &origin = *static_cast<KSEVOrigin *>(gettbl(event->origins, i));
          result = graver(result, read_associations(*state_, reader, origin));
        }
        return result;
      });
}

int KSEventView::refreshAssociations(KSEVOrigin *origin) {
  return with_record(
      *state_, {"refreshAssociations"}, origin, bind_all,
      [&](TreeReader &reader) { return read_associations(*state_, reader, *origin); });
}

int KSEventView::refreshAssociation(KSEVOrigin *origin, long recno,
                                    KSEVAssociation *association) {
  constexpr const char *kName = "refreshAssociation";
  return with_record(*state_, {kName}, association, bind_all, [&](TreeReader &reader) {
    bool strange = false;
    const int result = read_row<EVAssociation>(
        *state_, kName, reader, *association, [&](EVAssociation &source) {
          const int read = reader.read_association(recno, source);
          int64_t orid = -1;
          if (read != 0 || origin == nullptr) return read;
          strange = !reader.assoc_columns().orid.read(source.record_assoc, orid) ||
                    orid != origin->orid;
          return strange ? kUnreadable : 0;
        });
    return strange ? view_failure(kName, "the row is of another origin") : result;
  });
}

int KSEventView::refreshStamags(KSEVMagnitude *magnitude) {
  return with_record(
      *state_, {"refreshStamags"}, magnitude, bind_all, [&](TreeReader &reader) {
        MessagesOfFailure messages;
        EVMagnitude source;
        if (magnitude->record_netmag == nullptr) return kUnreadable;
        source.record_netmag = magnitude->record_netmag;
        const int result = messages.note(reader.read_stamags(source));
        if (result < 0) return view_failure("refreshStamags", "cannot read the tables");
        ViewRecords &records = state_->records;
        records.replace(magnitude->stamags,
                        records.make_list<KSEVStamag>(reader, source.stamags));
        return result;
      });
}

int KSEventView::refreshStamag(long recno, KSEVStamag *stamag) {
  return with_record(
      *state_, {"refreshStamag"}, stamag, bind_all, [&](TreeReader &reader) {
        return read_row<EVStamag>(
            *state_, "refreshStamag", reader, *stamag,
            [&](EVStamag &source) { return reader.read_stamag(recno, source); });
      });
}

KSEVEvent *KSEventView::findEvid(long evid) {
  Fallbacks fallbacks;
  KSEVEvent *found = nullptr;
  with_tables(*state_, {"findEvid", "dbmatches(event) error"}, bind_list,
              [&](TreeReader &reader) {
                MessagesOfFailure messages;
                EVEvent source;
                const int result = reader.read_event_of(evid, 0, source);
                if (result == kNoRow) return 0;
                if (result != 0) {
                  messages.note(kFailed);
                  return view_failure("findEvid", "refreshEvent() error");
                }
                fallbacks.note(source);
                found = state_->records.make(reader, source).release();
                return 0;
              });
  fallbacks.complain();
  return found;
}

KSEVOrigin *KSEventView::findOrid(long orid) {
  KSEVOrigin *found = nullptr;
  with_tables(*state_, {"findOrid", "dbmatches(origin) error"}, bind_list,
              [&](TreeReader &reader) {
                MessagesOfFailure messages;
                EVOrigin source;
                const int result = reader.read_origin_of(orid, source);
                if (result == kNoRow) return 0;
                if (result != 0) {
                  messages.note(kFailed);
                  return view_failure("findOrid", "refreshOrigin() error");
                }
                found = state_->records.make(reader, source).release();
                return 0;
              });
  return found;
}
