/* ViewRecords: makes, counts and frees the records of a view. */
#ifndef KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_RECORDS_H
#define KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_RECORDS_H

#include <atomic>
#include <memory>
#include <new>
#include <string_view>

#include "events/kseventview.h"
#include "events/reading/internal/tree_reader.h"
#include "events/records.h"
#include "platform/elog/failure.h"

namespace ksutil::events {

/* Registers "<who>: malloc(<record>) error.\n" as fail_memory does. */
Failure fail_memory_for(const char *who, const char *record);

/* A new text; throws std::bad_alloc. */
char *new_text(std::string_view text);
char *new_row_text(const db::RowText &text);

struct FreeStation {
  void operator()(KSEVOriginStation *station) const;
};
using StationPtr = std::unique_ptr<KSEVOriginStation, FreeStation>;

/* A new station with its code only; throws std::bad_alloc. */
StationPtr new_station(const char *sta);

/* Makes records from those that a TreeReader has read.  Only the functions that make
 * records or lists, or append to them, throw (std::bad_alloc). */
class ViewRecords {
 public:
  template <class Record>
  struct FreeRecord {
    ViewRecords *records;
    void operator()(Record *record) const { records->free(record); }
  };
  template <class Record>
  using Ptr = std::unique_ptr<Record, FreeRecord<Record>>;
  template <class Record>
  struct FreeList {
    ViewRecords *records;
    void operator()(Tbl *list) const { records->free_list<Record>(list); }
  };
  template <class Record>
  using ListPtr = std::unique_ptr<Tbl, FreeList<Record>>;

  Ptr<KSEVStamag> make(const TreeReader &reader, const EVStamag &source);
  Ptr<KSEVMagnitude> make(const TreeReader &reader, const EVMagnitude &source);
  Ptr<KSEVMoment> make(const TreeReader &reader, const EVMoment &source);
  Ptr<KSEVAssociation> make(const TreeReader &reader, const EVAssociation &source);
  Ptr<KSEVOrigin> make(const TreeReader &reader, const EVOrigin &source);
  Ptr<KSEVEvent> make(const TreeReader &reader, const EVEvent &source);
  Ptr<KSEVDetection> make(const EVDetection &source, const DetectionFields &fields);

  /* A new empty list, never null. */
  template <class Record>
  ListPtr<Record> new_list() {
    ListPtr<Record> list(newtbl(0), FreeList<Record>{this});
    if (list == nullptr) throw std::bad_alloc();
    return list;
  }
  template <class Record>
  static void push(const ListPtr<Record> &list, Ptr<Record> record) {
    if (pushtbl(list.get(), record.get()) < 0) throw std::bad_alloc();
    record.release();
  }
  /* A list of records of all sources; null when there are none. */
  template <class Record, class Source>
  ListPtr<Record> make_list(const TreeReader &reader, const Table<Source> &sources) {
    if (sources.size() == 0) return ListPtr<Record>(nullptr, FreeList<Record>{this});
    ListPtr<Record> list = new_list<Record>();
    for (const Source &source : sources) push(list, make(reader, source));
    return list;
  }

  /* Frees the contents of a record (or a list) of the owner and gives it new ones. */
  template <class Record>
  void replace(Record &held, Ptr<Record> made) {
    clear(held);
    held = *made;
    *made = Record();
  }
  template <class Record>
  void replace(Tbl *&held, ListPtr<Record> made) {
    free_list<Record>(held);
    held = made.release();
  }

  template <class Record>
  void free(Record *record) {
    if (record == nullptr) return;
    clear(*record);
    delete record;
  }
  template <class Record>
  void free_list(Tbl *list) {
    for (long i = 0; i < counttbl(list); i++) {
      free(static_cast<Record *>(gettbl(list, i)));
    }
    freetbl(list, nullptr);
  }
  static void free_stations(rbtree *stations);

  struct Counts {
    std::atomic<long> events{0}, origins{0}, magnitudes{0}, moments{0}, associations{0},
        detections{0}, stamags{0};
  };
  const Counts &counts() const { return counts_; }

 private:
  template <class Record>
  Ptr<Record> new_record();

  /* Frees the contents of a record, and resets it to a new one. */
  template <class Record>
  void clear(Record &record);
  void free_contents(KSEVStamag &stamag);
  void free_contents(KSEVMagnitude &magnitude);
  void free_contents(KSEVMoment &moment);
  void free_contents(KSEVAssociation &association);
  void free_contents(KSEVDetection &detection);
  void free_contents(KSEVOrigin &origin);
  void free_contents(KSEVEvent &event);

  std::atomic<long> &count_of(const KSEVStamag &) { return counts_.stamags; }
  std::atomic<long> &count_of(const KSEVMagnitude &) { return counts_.magnitudes; }
  std::atomic<long> &count_of(const KSEVMoment &) { return counts_.moments; }
  std::atomic<long> &count_of(const KSEVAssociation &) { return counts_.associations; }
  std::atomic<long> &count_of(const KSEVDetection &) { return counts_.detections; }
  std::atomic<long> &count_of(const KSEVOrigin &) { return counts_.origins; }
  std::atomic<long> &count_of(const KSEVEvent &) { return counts_.events; }

  Counts counts_;
};

template <class Record>
void ViewRecords::clear(Record &record) {
  free_contents(record);
  if (record.counted) --count_of(record);
  record = Record();
}

}  // namespace ksutil::events
#endif
