#include "platform/db/postgresql/internal/pg_request.h"

#include <algorithm>
#include <utility>

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

/* Bytes of new rows that are kept from one answer; others are read when they are asked
 * for. */
constexpr std::size_t kMostKeptBytes = std::size_t{64} << 20;

}  // namespace

PgRequest::PgRequest(PgPlace place, std::string table,
                     std::shared_ptr<const PgSnapshot> before, bool whole)
    : place_(std::move(place)),
      table_(std::move(table)),
      before_(std::move(before)),
      whole_(whole || before_ == nullptr) {}

std::string PgRequest::statements() const {
  const std::string from = " FROM " + place_.sql_name;
  if (whole_) {
    return "; COPY (SELECT ks_record" + from +
           " ORDER BY ks_record) TO STDOUT; SELECT 1; SELECT 1";
  }
  const auto last = static_cast<long long>(before_->keys().last());
  const auto version = static_cast<long long>(before_->state().version);
  const std::string rows = "; COPY (SELECT ks_record," + place_.rows->columns() + from;
  return rows + format_text(" WHERE ks_record > %lld", last) +
         " ORDER BY ks_record) TO STDOUT" + rows +
         format_text(
             " WHERE ks_version > 0 AND ks_version > %lld AND ks_record <= %lld",
             version, last) +
         " ORDER BY ks_record) TO STDOUT; COPY (SELECT record FROM ks_removed WHERE "
         "name = '" +
         table_ + format_text("' AND version > %lld", version) +
         " ORDER BY record) TO STDOUT";
}

void PgRequest::clear() {
  keys_ = PgKeys();
  delta_ = PgDelta();
  told_.clear();
}

bool PgRequest::read_line(int statement, std::string_view line) {
  const std::size_t tab = std::min(line.find('\t'), line.size());
  std::int64_t key = 0;
  if (!read_key(line.substr(0, tab), key)) return false;
  if (whole_) return keys_.append(key);
  if (statement == 2) {
    delta_.removed.push_back(key);
    return true;
  }
  const bool is_new = statement == 0;
  std::vector<std::int64_t> &keys = is_new ? delta_.new_keys : delta_.changed_keys;
  std::string &rows = is_new ? delta_.new_rows : delta_.changed_rows;
  const std::size_t length = place_.rows->length();
  const bool left_out = is_new && rows.size() != keys.size() * length;
  keys.push_back(key);
  if (left_out || (is_new && rows.size() >= kMostKeptBytes)) return true;
  rows.resize(rows.size() + length);
  std::string cause;
  const bool good = place_.rows->render(line.substr(std::min(tab + 1, line.size())),
                                        rows.data() + rows.size() - length, cause);
  if (!good && told_.empty()) told_ = cause;
  return true;
}

std::shared_ptr<const PgSnapshot> PgRequest::snapshot(const char *who,
                                                      const PgState &state) const {
  if (!told_.empty()) {
    fail(who, "%s: A row cannot be shown: %s", place_.file.c_str(), told_.c_str());
  }
  if (whole_) {
    auto made = std::make_shared<PgSnapshot>(place_, state,
                                             std::make_shared<const PgKeys>(keys_),
                                             std::make_shared<PgLog>());
    if (before_ != nullptr) made->compare_with(*before_);
    if (made->count() != state.rows) {
      fail(who, "%s has %ld rows, but its row_count in ks_tables is %ld",
           place_.file.c_str(), made->count(), static_cast<long>(state.rows));
    }
    return made;
  }
  if (state.same_as(before_->state())) {
    return before_->complete() ? before_ : before_->once_more();
  }
  std::shared_ptr<const PgSnapshot> next = before_->followed_by(state, delta_);
  return next != nullptr && next->count() == state.rows ? next : nullptr;
}

}  // namespace ksutil::db
