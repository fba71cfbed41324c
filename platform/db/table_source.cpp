#include "platform/db/internal/table_source.h"

#include "platform/db/db.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

/* Converts the scratch record to another layout of the same table: values that no
 * longer fit become null. */
std::string refitted(const Relation &from, const Relation &to, const std::string &row,
                     const std::string &null) {
  std::string result = null;
  for (const Field &field : to.fields) {
    const Field *const old = from.find(field.name);
    if (old == nullptr) continue;
    const std::string_view text = trimmed(std::string_view(row).substr(
        static_cast<std::size_t>(old->offset), static_cast<std::size_t>(old->width)));
    const auto width = static_cast<std::size_t>(field.width);
    if (text.size() > width) continue;
    const std::string blanks(width - text.size(), ' ');
    const std::string value(text);
    result.replace(static_cast<std::size_t>(field.offset), width,
                   field.type == FieldType::kText ? value + blanks : blanks + value);
  }
  return result;
}

}  // namespace

bool replace_row(const char *who, const Relation &layout, std::string_view text,
                 std::string &row) {
  const std::string_view line =
      text.ends_with('\n') ? text.substr(0, text.size() - 1) : text;
  if (line.size() != static_cast<std::size_t>(layout.width) ||
      line.find('\n') != line.npos) {
    return fail(who, "%zu bytes are not a record of %s, which is one line of %d",
                text.size(), layout.name.c_str(), layout.width);
  }
  row.assign(line);
  row += '\n';
  return true;
}

TableSource::TableSource(TableStore &store, long number, bool writable)
    : store_(store), number_(number), writable_(writable) {
  adopt(store.layout());
}

void TableSource::adopt(const Relation &layout) {
  if (layout_ != nullptr && same_layout(layout_->relation(), layout)) return;
  auto bound = std::make_shared<const BoundLayout>(layout);
  null_ = null_record(layout);
  scratch_ = layout_ == nullptr
                 ? null_
                 : refitted(layout_->relation(), layout, scratch_, null_);
  layout_ = std::move(bound);
}

int TableSource::field_count() const {
  return static_cast<int>(relation().fields.size());
}

const Field &TableSource::field(int index) const {
  return relation().fields[static_cast<std::size_t>(index)];
}

int TableSource::find_field(std::string_view name) const {
  const std::size_t point = name.find('.');
  if (point != name.npos) {
    if (name.substr(0, point) != relation().name) return -1;
    name.remove_prefix(point + 1);
  }
  return relation().index(name);
}

bool TableSource::stamp(const char *who, Stamp &stamp) {
  if (!store_.stamp(stamp)) return fail(who, "cannot look at table %s", name().c_str());
  if (snapshot_ == nullptr || !(snapshot_->stamp() == stamp)) stale_ = true;
  return true;
}

std::shared_ptr<const Snapshot> TableSource::look(const char *who) {
  return show(who, store_.snapshot());
}

std::shared_ptr<const Snapshot> TableSource::look_anew(const char *who) {
  return show(who, store_.snapshot_anew());
}

std::shared_ptr<const Snapshot> TableSource::show(const char *who,
                                                  std::shared_ptr<const Snapshot> now) {
  if (now == nullptr) {
    fail(who, "cannot read table %s", name().c_str());
    return nullptr;
  }
  if (stale_ || now != snapshot_) {
    adopt(now->layout());
    snapshot_ = std::move(now);
  }
  stale_ = false;
  return snapshot_;
}

bool TableSource::count(const char *who, long &count) {
  Stamp now;
  if (!stamp(who, now)) return false;
  count = now.count;
  return true;
}

bool TableSource::unreadable(const char *who, long &count) {
  const std::shared_ptr<const Snapshot> rows = look(who);
  if (rows == nullptr) return false;
  const ElogScope quiet;
  count = 0;
  for (long number = 0; number < rows->count(); ++number) {
    if (!layout_->readable(rows->row(number))) ++count;
  }
  return true;
}

/* Makes sure that the snapshot holds the record; takes one new look at most. */
bool TableSource::refresh(const char *who, long number) {
  if ((stale_ || number >= snapshot_->count()) && look(who) == nullptr) return false;
  if (number < snapshot_->count()) return true;
  return fail(who, "%s has no record %ld, only %ld records", name().c_str(), number,
              snapshot_->count());
}

/* Takes a new snapshot when a row of the last one has changed meanwhile. */
bool TableSource::look_again(const char *who, long number) {
  if (!snapshot_->overtaken()) return false;
  stale_ = true;
  return refresh(who, number);
}

std::string_view TableSource::row(const char *who, long number) {
  if (number == dbSCRATCH) return scratch_;
  if (number == dbNULL) return null_;
  if (number < 0) {
    fail(who, "no record of %s is chosen", name().c_str());
    return {};
  }
  if (!refresh(who, number)) return {};
  std::string_view row = snapshot_->row(number);
  if (row.empty() && look_again(who, number)) row = snapshot_->row(number);
  if (row.empty()) {
    fail(who, "cannot read record %ld of %s", number, name().c_str());
  }
  return row;
}

RowText TableSource::text(const char *who, long number) {
  if (number < 0) return RowText(row(who, number));
  if (!refresh(who, number)) return {};
  RowText text = snapshot_->text(number);
  if (text.empty() && look_again(who, number)) text = snapshot_->text(number);
  if (text.empty()) {
    fail(who, "cannot read record %ld of %s", number, name().c_str());
  }
  return text;
}

const expr::Record *TableSource::record(const char *who, long number) {
  const std::string_view text = row(who, number);
  if (text.empty()) return nullptr;
  current_ = RowRecord(*layout_, text);
  return &current_;
}

bool TableSource::set_scratch(const char *who, std::string_view text) {
  return replace_row(who, relation(), text, scratch_);
}

bool TableSource::exclusively(
    const char *who, const std::function<bool(TableStore::Exclusive &)> &work) {
  if (!writable_) {
    return fail(who, "cannot write %s: the database is open for reading only",
                name().c_str());
  }
  const bool done = store_.exclusively(work);
  stale_ = true;
  return done;
}

bool TableSource::rewrite(const char *who, long number, const Edit &edit) {
  if (number == dbSCRATCH) {
    std::string row = scratch_;
    if (!edit(relation(), row)) return false;
    scratch_ = std::move(row);
    return true;
  }
  if (number < 0) {
    return fail(who, "no record of %s is chosen that can be written", name().c_str());
  }
  bool told = false;
  const bool written = exclusively(who, [&](TableStore::Exclusive &table) {
    const std::shared_ptr<const Snapshot> now = table.snapshot();
    if (now == nullptr) return false;
    if (number >= now->count()) {
      fail(who, "%s has no record %ld, only %ld records", name().c_str(), number,
           now->count());
      told = true;
      return false;
    }
    std::string row(now->row(number));
    if (row.empty()) return false;
    told = !edit(now->layout(), row);
    return !told && table.overwrite(number, row);
  });
  if (!written && !told) {
    fail(who, "cannot write record %ld of %s", number, name().c_str());
  }
  return written;
}

long TableSource::append(const char *who, const Edit &edit) {
  bool told = false;
  long number = -1;
  const bool written = exclusively(who, [&](TableStore::Exclusive &table) {
    adopt(store_.layout());
    std::string row = null_;
    told = !edit(relation(), row);
    if (!told) number = table.append(row);
    return number >= 0;
  });
  if (written) return number;
  if (!told) fail(who, "cannot add a record to %s", name().c_str());
  return -1;
}

}  // namespace ksutil::db
