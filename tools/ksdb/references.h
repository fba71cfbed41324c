/* references: finds the rows of other tables that refer to rows of a table. */
#ifndef KSUTIL_TOOLS_KSDB_REFERENCES_H
#define KSUTIL_TOOLS_KSDB_REFERENCES_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "platform/db/schema.h"
#include "platform/db/snapshot.h"

namespace ksutil::tools {

/* A field of a table whose values name rows of another table by `target`.  A tagged field
 * (tagid of publicid and wftag) does so in the rows whose tagname is `target`. */
struct Referrer {
  std::string table, field, target;
  bool tagged = false;
};

/* The fields that refer to rows of a table, after the foreign keys of the schema. */
std::vector<Referrer> referrers_of(const db::Schema &schema, const std::string &table);

/* Values by the fields of the table that hold them, in the form that KeyReader
 * gives. */
using ValuesOfFields = std::map<std::string, std::unordered_set<std::string>>;

/* The values of the fields that referrers name, in the rows for which `takes` is true. */
ValuesOfFields values_in(const db::Snapshot &rows,
                         const std::vector<Referrer> &referrers,
                         const std::function<bool(long record)> &takes);

/* Removes from the first list the values that are in the second. */
void take_away(ValuesOfFields &values, const ValuesOfFields &others);

/* Calls visit(record, value) for each row of a referrer's table that refers to one of the
 * values. */
void each_reference(const Referrer &referrer, const db::Snapshot &rows,
                    const ValuesOfFields &values,
                    const std::function<void(long record, const std::string &)> &visit);

/* Gives the rows of a table, null for a table without rows; false when it cannot be read. */
using SnapshotOf = std::function<bool(const std::string &table,
                                      std::shared_ptr<const db::Snapshot> &rows)>;

/* How many rows refer to values, as lines for messages: "3 rows of origin refer by evid
 * (record 0: 17)"; a line, too, for a table of which not all rows can be read now. */
std::vector<std::string> told_references(const std::vector<Referrer> &referrers,
                                         const SnapshotOf &snapshot,
                                         const ValuesOfFields &values);

}  // namespace ksutil::tools
#endif
