/* ImportPlan: decides which rows an event adds and changes, and gives them to the tables. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORT_PLAN_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORT_PLAN_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "formats/exchange/import/code_map.h"
#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/import/import_tables.h"
#include "formats/exchange/import/importer.h"
#include "formats/exchange/import/remark_lines.h"
#include "formats/exchange/records.h"

namespace ksutil::exchange {

class ImportPlan {
 public:
  ImportPlan(ImportTables &tables, const ImportOptions &options, ImportCounts &counts,
             double now)
      : tables_(tables),
        options_(options),
        counts_(counts),
        now_(now),
        codes_(tables) {}

  /* The row of the event in the table event; -1: it is new.  `by_alias` tells whether only
   * a further id led to it. */
  std::int64_t find(const Event &event, bool &by_alias) const;

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
  /* A text id of the input: the number that it stands for. */
  struct Known {
    std::int64_t id = -1;  // -1: none yet
    bool now = false;      // it was met in this import
  };

  bool plan(const Event &event, std::int64_t record);
  std::int64_t find_id(const std::string &id) const;
  /* Whether an event of the database is where and when this one is, so that an id which
   * two sources have given out does not join their events. */
  bool is_near(const Event &event, std::int64_t record) const;
  bool plan_aliases(const Event &event, std::int64_t evid);
  bool has_news(const Event &event) const;
  /* Finds an origin that has lost its event and is the event's. */
  bool find_orphan(const Event &event, std::int64_t &evid, std::int64_t &orid) const;
  bool plan_origins(const Event &event, std::int64_t evid, bool healed,
                    std::int64_t &prefor);
  /* Which origin of the database is the event's i-th; false: another event has it. */
  bool place_origin(const Event &event, std::size_t i, std::int64_t prefor,
                    Place &place);
  bool plan_origin(const Event &event, const Origin &origin, Place place);
  bool plan_magnitudes(const Event &event, const Origin &origin, Place place,
                       OriginMagnitudes &own);
  bool plan_tensors(const Event &event, const Origin &origin, Place place,
                    std::int64_t magid);
  std::int64_t netmag_of(const Magnitude &magnitude, std::int64_t known,
                         std::size_t count, Place place,
                         const std::vector<std::int64_t> &taken) const;

  /* The rows of picks, and those that join them to an origin. */
  bool plan_picks(const Event &event);
  bool plan_pick(const Pick &pick, const StationCode &code, std::int64_t &arid);
  void plan_associations(const Origin &origin, Place place);
  void plan_station_magnitudes(const Origin &origin, Place place);
  const StationCode &code_of(const ChannelCode &channel);

  bool plan_public_id(const char *key, const std::string &id, std::int64_t value);
  Known known_id(const char *key, const std::string &id) const;
  /* The same for records that are not shared: the id of an earlier one counts as none,
   * since there are catalogues that give one id to all magnitudes of an event. */
  Known own_id(const char *key, const std::string &id) const;
  void meet(const char *key, const std::string &id, std::int64_t value);
  std::uint64_t id_key(const char *key, const std::string &id) const;

  /* Comment lines: those of a kind in place, or added behind those that others have
   * written; the rest once.  `commid` is made when there is something to say. */
  bool plan_remarks(const std::vector<RemarkLine> &lines, std::int64_t &commid);
  int remark_width() const {
    return tables_.has(kRemark) ? tables_.width(kRemark, "remark") : 0;
  }

  /* Takes the row into the plan when it is new or not as before. */
  void set(Table table, std::int64_t record, std::string row);
  bool same_but(std::string_view field, Table table, std::string_view a,
                std::string_view b) const;
  bool same_solution(Table table, std::string row, std::string_view before) const;
  std::string row_of(Table table, std::int64_t record) const;
  std::int64_t integer(Table table, std::string_view field, std::string_view row) const;
  /* A text as its field would show it; "" for a null. */
  std::string as_stored(Table table, std::string_view field,
                        std::string_view text) const;
  bool take(IdKey key, std::int64_t &id);
  bool write();

  ImportTables &tables_;
  const ImportOptions &options_;
  ImportCounts &counts_;
  const double now_;
  CodeMap codes_;
  IdMap ids_;  // met in this import, of the events before

  /* Of the event that is being planned. */
  double updated_ = 0.0;  // its load date; 0: none
  std::vector<Pending> pending_;
  /* It is older than what the database has: only its new origins, magnitudes and tensors
   * are taken. */
  bool adding_only_ = false;
  bool changed_ = false;  // any row
  bool differs_ = false;  // a row of a solution, in more than load date and comment
  FillReport report_;
  std::unordered_map<std::uint64_t, std::int64_t> met_;  // ids of this event
  std::vector<std::int64_t> arids_;                      // of its picks
  std::vector<StationCode> pick_codes_;                  // of its picks
  std::vector<std::int64_t> magids_;                     // of the origin's magnitudes
  PreferredIds preferred_;
  std::unordered_map<std::uint64_t, std::size_t> seen_;  // rows of a key, so far
  std::unordered_set<std::int64_t> placed_;              // orids that its origins have
};

}  // namespace ksutil::exchange
#endif
