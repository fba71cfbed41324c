/* TableReader: events from a table with column names: ComCat columns in CSV, and the
 * text form of the FDSN event service.
 *
 * Columns are found by name, in any order and any case.  Time, latitude, longitude and an
 * id must be there; other columns than the known ones are named by without_place(). */
#ifndef KSUTIL_FORMATS_EXCHANGE_TABLE_TABLE_READER_H
#define KSUTIL_FORMATS_EXCHANGE_TABLE_TABLE_READER_H

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/reader.h"
#include "formats/exchange/text/csv_rows.h"

namespace ksutil::exchange {

class TableReader final : public Reader {
 public:
  TableReader(Input &input, char delimiter, bool quotes)
      : input_(input), rows_(input, delimiter, quotes), delimiter_(delimiter) {}

  /* Reads the column names; false with `problem` set. */
  bool begin(std::string &problem);

  Got next(Event &event) override;
  std::int64_t line() const override { return rows_.line(); }
  const std::string &problem() const override { return problem_; }
  std::vector<Unplaced> without_place() const override { return unknown_; }

  /* The meanings of columns. */
  enum Column : std::size_t {
    kTime,
    kLatitude,
    kLongitude,
    kDepth,
    kMag,
    kMagType,
    kNst,
    kGap,
    kDmin,
    kRms,
    kNet,
    kId,
    kUpdated,
    kPlace,
    kType,
    kHorizontalError,
    kDepthError,
    kMagError,
    kMagNst,
    kStatus,
    kLocationSource,
    kMagSource,
    kColumns
  };

 private:
  bool has(Column column) const;
  std::string_view cell(Column column) const;
  void refuse(Column column, std::string_view text);
  void real(Column column, double low, double high, bool required, double &value);
  void count(Column column, std::int64_t &value);
  void time(Column column, bool required, double &value);
  void text(Column column, bool required, std::string &value);
  void read_event(Event &event);

  Input &input_;
  CsvRows rows_;
  const char delimiter_;
  std::size_t width_ = 0;                       // columns of the table
  std::array<std::size_t, kColumns> places_{};  // of the columns; kNone: not there
  std::vector<Unplaced> unknown_;
  std::string problem_, number_;
};

}  // namespace ksutil::exchange
#endif
