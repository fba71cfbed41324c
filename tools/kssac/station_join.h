/* StationJoin: rows of wfdisc with what the database has on their stations. */
#ifndef KSUTIL_TOOLS_KSSAC_STATION_JOIN_H
#define KSUTIL_TOOLS_KSSAC_STATION_JOIN_H

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/db/db.h"

namespace ksutil::tools {

/* A join drops the rows that have no partner; waveforms of unknown stations are wanted
 * too.  So there is a view for each set of tables that have something on some row. */
class StationJoin {
 public:
  /* `rows` is wfdisc or a subset of it; its database stays open for longer. */
  explicit StationJoin(Dbptr rows);

  /* The record of the view with the most tables for a record of `rows`; one with
   * dbINVALID, with messages, when a view cannot be made. */
  Dbptr record(Dbptr row);

 private:
  /* What joins wfdisc with a table: items of both, compared one by one. */
  struct Link {
    std::string table;
    std::vector<std::string> of_rows, of_table;
  };
  struct View {
    Dbptr view;
    std::unordered_map<long, long> records;  // by the record of wfdisc
  };

  /* The view with the tables of a set of bits; null with messages. */
  const View *view(unsigned tables);
  Dbptr joined(unsigned tables);

  Dbptr rows_;
  std::vector<Link> links_;
  std::vector<std::optional<View>> views_;
};

}  // namespace ksutil::tools
#endif
