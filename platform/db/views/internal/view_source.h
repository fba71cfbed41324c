/* ViewSource: holds the tuples of records that a view consists of. */
#ifndef KSUTIL_PLATFORM_DB_VIEWS_INTERNAL_VIEW_SOURCE_H
#define KSUTIL_PLATFORM_DB_VIEWS_INTERNAL_VIEW_SOURCE_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/db.h"
#include "platform/db/internal/record_source.h"
#include "platform/db/internal/registry.h"
#include "platform/db/internal/table_source.h"

namespace ksutil::db {

/* The tables of a view, and its records one after another: of each the record numbers in
 * the order of the tables. */
struct Tuples {
  struct Part {
    int number;  // of the table, as in Dbptr::table
    TableSource *source;
  };
  std::vector<Part> parts;
  std::vector<long> records;
  /* For the records of a table: the look at it that counted them. */
  std::shared_ptr<const Snapshot> counted;
  long left_out = 0;  // records that could not be read when this list was made

  long count() const {
    return static_cast<long>(records.size()) / static_cast<long>(parts.size());
  }
  const long *tuple(long i) const {
    return &records[static_cast<std::size_t>(i) * parts.size()];
  }
  void add(const long *tuple) {
    records.insert(records.end(), tuple, tuple + parts.size());
  }
};

class ViewSource final : public RecordSource {
 public:
  /* A field of the view: the table among those of its tuples, and the field there. */
  struct Place {
    std::size_t part;
    int field;
  };

  explicit ViewSource(Tuples tuples);

  const std::string &name() const override { return name_; }
  int field_count() const override { return static_cast<int>(fields_.size()); }
  const Field &field(int index) const override {
    return fields_[static_cast<std::size_t>(index)];
  }
  int find_field(std::string_view name) const override;
  std::uint64_t signature() const override;
  bool count(const char *who, long &count) override;
  bool unreadable(const char *, long &count) override {
    count = tuples_.left_out;
    return true;
  }
  const expr::Record *record(const char *who, long number) override;

  const Tuples &tuples() const { return tuples_; }
  /* By the indexes of the view's fields. */
  const std::vector<Place> &places() const { return places_; }

  /* For a view of groups: the first record of each group in the list that was grouped,
   * and at the end the number of records of that list; empty for other views. */
  std::vector<long> group_starts;

 private:
  struct JoinedRecord final : expr::Record {
    bool value(int slot, expr::Value &result) const override {
      const Place &place = (*places)[static_cast<std::size_t>(slot)];
      return parts[place.part]->value(place.field, result);
    }
    const std::vector<Place> *places = nullptr;
    std::vector<const expr::Record *> parts;
  };

  std::string name_;
  Tuples tuples_;
  std::vector<Field> fields_;  // the first of a name as it is, later ones as table.name
  std::vector<Place> places_;
  JoinedRecord current_;
};

/* The present records of a source; false with a message. */
bool list_tuples(const char *who, Dbptr db, RecordSource &source, Tuples &tuples);

/* The texts of a list of expressions, all of them at least one; false with a message. */
bool key_texts(const char *who, Tbl *keys, std::vector<std::string> &texts);

/* An expression over the fields of a source; null with a message. */
std::unique_ptr<const expr::Program> compile_expression(const char *who,
                                                        const RecordSource &source,
                                                        const std::string &text);

/* Makes a view of the database. */
Dbptr add_view(Database &database, Dbptr db, Tuples tuples,
               std::vector<long> group_starts = {});

}  // namespace ksutil::db
#endif
