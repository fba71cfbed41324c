/* How an event of a catalogue stands in the rows of a database. */
#ifndef KSUTIL_TOOLS_KSDB_IMPORT_CATALOGUE_ROWS_H
#define KSUTIL_TOOLS_KSDB_IMPORT_CATALOGUE_ROWS_H

#include <cstdint>
#include <string>

#include "platform/db/schema.h"
#include "tools/ksdb/import/catalogue_csv.h"

namespace ksutil::tools {

struct EventIds {
  std::int64_t evid = -1, orid = -1, magid = -1;
};

/* The text id as it stands in event.evname.  One that is longer than the field keeps its
 * beginning and ends in "~" and six characters that are computed from all of it, so that
 * the same id always gives the same name. */
std::string event_name(const std::string &id, int width);

bool has_magnitude(const CatalogueEvent &event);
bool has_errors(const CatalogueEvent &event);

/* Set the fields that the catalogue gives in `row`: the null record for a new row, or the
 * stored one for an update, whose other fields stay.  lddate is the catalogue's update
 * time, if there is one.  False, with a message, when a value does not fit. */
bool fill_event(const db::Relation &layout, const CatalogueEvent &event,
                const EventIds &ids, std::string &row);
bool fill_origin(const db::Relation &layout, const CatalogueEvent &event,
                 const EventIds &ids, std::string &row);
bool fill_origerr(const db::Relation &layout, const CatalogueEvent &event,
                  const EventIds &ids, std::string &row);
bool fill_netmag(const db::Relation &layout, const CatalogueEvent &event,
                 const EventIds &ids, std::string &row);

/* Sets lddate alone. */
bool stamp_row(const db::Relation &layout, double lddate, std::string &row);

}  // namespace ksutil::tools
#endif
