/* TupleRows: reads the rows of the tables behind tuples, in the order of the tuples.
 *
 * Tuples of a sorted or joined list name rows all over a table, which costs the reading of
 * a whole block for each row.  Such tuples are read in windows: the rows of a window are
 * copied in the order in which they stand in the table.  The memory for them is bounded. */
#ifndef KSUTIL_PLATFORM_DB_VIEWS_INTERNAL_TUPLE_ROWS_H
#define KSUTIL_PLATFORM_DB_VIEWS_INTERNAL_TUPLE_ROWS_H

#include <memory>
#include <string_view>
#include <vector>

#include "platform/db/views/internal/view_source.h"

namespace ksutil::db {

class TupleRows {
 public:
  /* The tuples outlive the object. */
  explicit TupleRows(const Tuples &tuples) : tuples_(tuples) {}

  /* Looks at the tables of the tuples, before the first read, unless a look has counted
   * them; false with a message.  A row that another program has overwritten since may be
   * shown as it is then. */
  bool look(const char *who);

  const BoundLayout &layout(std::size_t part) const { return *parts_[part].layout; }

  std::size_t tuple_bytes() const;
  const Snapshot &snapshot(std::size_t part) const { return *parts_[part].rows; }

  /* The rows of a tuple, one for each table, valid until the next call; null when one of
   * them cannot be read, which a message tells when its table is read.  Tuples are read in
   * ascending order. */
  const std::string_view *read(long number);

 private:
  struct Part {
    std::shared_ptr<const BoundLayout> layout;
    std::shared_ptr<const Snapshot> rows;
    bool scattered = false;      // in this window: its rows were copied
    std::vector<char> copies;    // of the window's rows, in the order of the tuples
    std::vector<bool> readable;  // of the copies
  };
  std::string_view row(std::size_t part, long number);
  void open_window(long first);
  bool is_scattered(std::size_t part) const;
  void copy_rows(std::size_t part);

  const Tuples &tuples_;
  const char *who_ = "";  // of look()
  std::vector<Part> parts_;
  std::vector<std::string_view> found_;
  long first_ = 0, end_ = 0;  // of the window
  long next_size_ = 0;        // tuples in the next window
};

/* The record of a tuple under the field indexes of the source that lists the tuples. */
class TupleRecord final : public expr::Record {
 public:
  TupleRecord(const RecordSource &source, const TupleRows &rows);
  /* For the fields of one of the tables. */
  TupleRecord(const TupleRows &rows, std::size_t part);

  /* The tables' rows that value() reads. */
  void show(const std::string_view *rows) { rows_ = rows; }
  bool value(int slot, expr::Value &result) const override {
    const Place &place = places_[static_cast<std::size_t>(slot)];
    return place.layout->value(place.field, rows_[place.part], result);
  }

 private:
  struct Place {
    const BoundLayout *layout;
    int field;
    std::size_t part;
  };
  void add_fields(const TupleRows &rows, std::size_t part);

  std::vector<Place> places_;
  const std::string_view *rows_ = nullptr;
};

}  // namespace ksutil::db
#endif
