/* StationJoin: joins rows of wfdisc with the station tables of the database. */
#ifndef KSUTIL_TOOLS_KSSAC_STATION_JOIN_H
#define KSUTIL_TOOLS_KSSAC_STATION_JOIN_H

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/db/db.h"

namespace ksutil::tools {

/* A join drops rows without a partner, but waveforms of unknown stations are wanted
 * too.  Therefore there is a view for each set of tables that have a match for some
 * row. */
class StationJoin {
 public:
  /* `rows` is wfdisc or a subset of it; its database stays open for longer. */
  explicit StationJoin(Dbptr rows);

  /* The record of the view with the most tables for a record of `rows`; one with
   * dbINVALID, with messages, when a view cannot be made. */
  Dbptr record(Dbptr row);

 private:
  /* How wfdisc is joined with a table: items of both, compared one by one. */
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
