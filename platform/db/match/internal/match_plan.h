/* MatchPlan: holds the compiled patterns of both sides of a match. */
#ifndef KSUTIL_PLATFORM_DB_MATCH_INTERNAL_MATCH_PLAN_H
#define KSUTIL_PLATFORM_DB_MATCH_INTERNAL_MATCH_PLAN_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/internal/record_source.h"
#include "platform/expr/expr.h"
#include "platform/stock/tbl.h"

namespace ksutil::db {

/* The two ends of a range pattern "low::high"; both the same for a point. */
struct MatchPattern {
  std::string low, high;
  bool range = false;
};

/* Splits at the first "::" that stands outside quotes. */
MatchPattern split_pattern(std::string_view text);

/* The texts of a pattern list; false with a message when it is empty or has a null
 * item. */
bool pattern_texts(const char *who, Tbl *list, std::vector<std::string> &texts);
bool same_texts(Tbl *list, const std::vector<std::string> &texts);

/* The values of one record under the patterns of its side. */
struct MatchKey {
  struct Range {
    double low, high;  // a null end is infinite
    bool operator==(const Range &) const = default;
  };
  bool null = false;          // matches nothing
  std::int64_t integer = 0;   // of a single integer item
  std::string equal;          // the items that must be equal, composed
  std::vector<Range> ranges;  // the items that must overlap, in order
  bool operator==(const MatchKey &) const = default;
};

class MatchPlan {
 public:
  /* Null with a message. */
  static std::unique_ptr<const MatchPlan> compile(const char *who,
                                                  const RecordSource &key,
                                                  const RecordSource &table,
                                                  std::vector<std::string> kpattern,
                                                  std::vector<std::string> tpattern);

  /* Whether it was compiled from these patterns and sources. */
  bool is_for(const RecordSource &key, const RecordSource &table, Tbl *kpattern,
              Tbl *tpattern) const;

  /* The field of the table if one integer field is matched with an integer, else "". */
  const std::string &id_field() const { return id_field_; }
  bool has_ranges() const { return ranges_ > 0; }

  /* The key of a record of either side; false, with a message, when it cannot be read. */
  bool read_key(const expr::Record &record, MatchKey &key) const;
  bool read_table(const expr::Record &record, MatchKey &key) const;

 private:
  enum class Kind { kInteger, kReal, kText };
  struct Side {
    std::unique_ptr<const expr::Program> low, high;  // high null: a point
  };
  struct Item {
    Kind kind;
    Side key, table;
    bool ranged() const { return key.high != nullptr || table.high != nullptr; }
  };

  bool add(const char *who, const RecordSource &key, const RecordSource &table,
           const std::string &kpattern, const std::string &tpattern);
  bool read(const expr::Record &record, Side Item::*side, MatchKey &key) const;

  std::vector<std::string> kpattern_, tpattern_;
  std::uint64_t key_signature_ = 0, table_signature_ = 0;
  std::vector<Item> items_;
  std::size_t ranges_ = 0;
  std::string id_field_;
};

}  // namespace ksutil::db
#endif
