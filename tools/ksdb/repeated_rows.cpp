#include "tools/ksdb/repeated_rows.h"

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "tools/ksdb/key_reader.h"

namespace ksutil::tools {
namespace {

/* Reads the values that must be equal in repeated rows. */
class Sameness {
 public:
  Sameness(const db::Relation &layout, bool by_key)
      : by_key_(by_key),
        key_(layout, by_key ? layout.primary : db::Key()),
        lddate_(layout.find("lddate")) {}

  /* False for a row that cannot repeat another. */
  bool read(std::string_view row, std::string &text) const {
    if (by_key_) return key_.valid() && key_.read(row, text);
    text = row;
    if (lddate_ != nullptr) {
      text.replace(static_cast<std::size_t>(lddate_->offset),
                   static_cast<std::size_t>(lddate_->width), 1, ' ');
    }
    return true;
  }

 private:
  const bool by_key_;
  const KeyReader key_;
  const db::Field *const lddate_;
};

struct HashedRow {
  std::size_t hash;
  long record;
};

double load_date(const db::RealColumn &column, std::string_view row) {
  double date = column.null();
  return column.read(row, date) ? date : column.null();
}

}  // namespace

std::vector<Repetition> find_repetitions(const db::Snapshot &rows, bool by_key,
                                         long &unreadable) {
  const ElogScope quiet;
  const Sameness same(rows.layout(), by_key);
  const db::RealColumn lddate(rows.layout(), "lddate");
  std::vector<HashedRow> hashed;
  std::string text, other;
  unreadable = 0;
  for (long i = 0; i < rows.count(); i++) {
    const std::string_view row = rows.row(i);
    if (row.empty()) {
      unreadable++;
    } else if (same.read(row, text)) {
      hashed.push_back({std::hash<std::string>()(text), i});
    }
  }
  std::sort(hashed.begin(), hashed.end(), [](const HashedRow &a, const HashedRow &b) {
    return a.hash != b.hash ? a.hash < b.hash : a.record < b.record;
  });
  std::vector<Repetition> found;
  for (auto from = hashed.begin(); from != hashed.end();) {
    const auto end = std::find_if(from, hashed.end(), [&](const HashedRow &row) {
      return row.hash != from->hash;
    });
    std::vector<long> left;
    for (auto row = from; row != end; ++row) left.push_back(row->record);
    from = end;
    /* Rows with the same hash are nearly always equal: one round then handles all of
     * them. */
    while (left.size() > 1) {
      std::vector<long> equal, different;
      /* A row that another program has overwritten meanwhile is not a repetition. */
      if (!same.read(rows.row(left.front()), text)) {
        left.erase(left.begin());
        continue;
      }
      equal.push_back(left.front());
      for (auto record = left.begin() + 1; record != left.end(); ++record) {
        if (!same.read(rows.row(*record), other)) continue;
        (other == text ? equal : different).push_back(*record);
      }
      long kept = equal.front();
      for (const long record : equal) {
        const double date = load_date(lddate, rows.row(record));
        if (date > load_date(lddate, rows.row(kept))) kept = record;
      }
      for (const long record : equal) {
        if (record != kept) found.push_back({record, kept});
      }
      left = std::move(different);
    }
  }
  std::sort(found.begin(), found.end(), [](const Repetition &a, const Repetition &b) {
    return a.record < b.record;
  });
  return found;
}

}  // namespace ksutil::tools
