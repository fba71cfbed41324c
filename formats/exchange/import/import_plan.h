/* ImportPlan: decides which rows an event adds and changes, and gives them to the tables. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORT_PLAN_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORT_PLAN_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/import/import_tables.h"
#include "formats/exchange/import/importer.h"
#include "formats/exchange/records.h"

namespace ksutil::exchange {

class ImportPlan {
 public:
  ImportPlan(ImportTables &tables, const ImportOptions &options, ImportCounts &counts,
             double now)
      : tables_(tables), options_(options), counts_(counts), now_(now) {}

  /* The row of the event in the table event; -1: it is new. */
  std::int64_t find(const std::string &id) const;

  /* Imports one event, whose row find() gave.  kRefused: reason() tells, and nothing was
   * changed; kFailed with a message. */
  enum class Result { kDone, kRefused, kFailed };
  Result import(const Event &event, std::int64_t record);
  const std::string &reason() const { return report_.refused; }

 private:
  /* A row to be written: a new one, or in place of `record`. */
  struct Pending {
    Table table;
    std::int64_t record;
    std::string row;
  };
  struct Place {
    std::int64_t evid = -1, orid = -1;
    bool fresh = true;  // the origin has no rows yet
  };

  bool plan(const Event &event, std::int64_t record);
  /* Finds an origin that has lost its event and is the event's. */
  bool find_orphan(const Event &event, std::int64_t &evid, std::int64_t &orid) const;
  bool plan_origin(const Event &event, const Origin &origin, Place place);
  bool plan_magnitudes(const Origin &origin, Place place, OriginMagnitudes &own);
  bool plan_tensors(const Origin &origin, Place place, std::int64_t magid);
  bool plan_public_id(const char *key, const std::string &id, std::int64_t value);
  bool plan_remark(const std::string &line, bool (*is_ours)(std::string_view),
                   std::int64_t &commid);
  std::int64_t netmag_of(const Magnitude &magnitude, std::size_t count, Place place,
                         const std::vector<std::int64_t> &taken) const;
  /* Takes the row into the plan when it is new or not as before. */
  void set(Table table, std::int64_t record, std::string row);
  bool same_but(std::string_view field, Table table, std::string_view a,
                std::string_view b) const;
  bool same_solution(Table table, std::string row, std::string_view before) const;
  std::string row_of(Table table, std::int64_t record) const;
  std::int64_t integer(Table table, std::string_view field, std::string_view row) const;
  bool take(IdKey key, std::int64_t &id);
  bool write();

  ImportTables &tables_;
  const ImportOptions &options_;
  ImportCounts &counts_;
  const double now_;

  /* Of the event that is being planned. */
  double updated_ = 0.0;  // its load date; 0: none
  std::vector<Pending> pending_;
  bool changed_ = false;  // any row
  bool differs_ = false;  // a row of a solution, in more than load date and comment
  FillReport report_;
};

}  // namespace ksutil::exchange
#endif
