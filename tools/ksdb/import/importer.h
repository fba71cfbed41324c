/* Brings a database up to date with a catalogue. */
#ifndef KSUTIL_TOOLS_KSDB_IMPORT_IMPORTER_H
#define KSUTIL_TOOLS_KSDB_IMPORT_IMPORTER_H

#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/db.h"
#include "tools/ksdb/import/catalogue_csv.h"
#include "tools/ksdb/import/catalogue_rows.h"

namespace ksutil::tools {

/* What an import did to the events of a catalogue. */
struct ImportCounts {
  long added = 0;
  long updated = 0;
  long unchanged = 0;
  long older = 0;  // the database holds a later version
};

/* An event is known by its text id, which stands in event.evname.  A new event gets an
 * event, an origin and, where the catalogue gives them, an origerr and a netmag row; a
 * later version of a known one changes these rows in place.  Children are written before
 * their event, so that a reader never sees an event without its origin. */
class Importer {
 public:
  explicit Importer(Dbptr database);

  /* False, with a message, when the database lacks a table. */
  bool ready() const;

  /* Imports events while the event table is locked: two imports at once do not add an
   * event twice.  False, with a message, on a failure; events before the failing one may
   * have been written. */
  bool import(std::span<const CatalogueEvent> events, ImportCounts &counts);

 private:
  /* One table: its store, and the rows to write to it. */
  struct Target {
    db::TableStore *store = nullptr;
    std::string added;
    std::vector<std::pair<long, std::string>> changed;

    const db::Relation &layout() const { return store->layout(); }
    bool write();
    bool write(db::TableStore::Exclusive &rows);
  };

  bool plan(const CatalogueEvent &event, ImportCounts &counts);
  bool plan_new(const CatalogueEvent &event);
  bool plan_update(const CatalogueEvent &event, long record, ImportCounts &counts);
  void learn_names(const db::Snapshot &events);
  bool follow_children();
  bool reserve_ids(std::span<const CatalogueEvent> events);
  std::string name_of(const CatalogueEvent &event) const;

  Dbptr database_;
  Target event_, origin_, origerr_, netmag_;
  db::KeyIndex origin_by_orid_{"orid"}, origerr_by_orid_{"orid"},
      netmag_by_orid_{"orid"};
  std::unordered_map<std::string, long> record_by_name_;
  std::shared_ptr<const db::Snapshot> events_;
  EventIds next_;
};

}  // namespace ksutil::tools
#endif
