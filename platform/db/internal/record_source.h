/* RecordSource: the table or view that Dbptr::table names: numbered records with fields
 * that have names, positions and values.
 *
 * Threads: as the database handle that it belongs to. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_RECORD_SOURCE_H
#define KSUTIL_PLATFORM_DB_INTERNAL_RECORD_SOURCE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/db/schema.h"
#include "platform/expr/expr.h"

namespace ksutil::db {

class TableSource;

class RecordSource {
 public:
  virtual ~RecordSource() = default;

  virtual const std::string &name() const = 0;

  virtual int field_count() const = 0;
  virtual const Field &field(int index) const = 0;
  /* The index of "time" or "origin.time"; -1 when there is no such field. */
  virtual int find_field(std::string_view name) const = 0;

  /* Equal for sources whose field indexes mean the same fields. */
  virtual std::uint64_t signature() const = 0;

  /* The present number of records; false with a message. */
  virtual bool count(const char *who, long &count) = 0;

  /* The number of records that cannot be read, see dbq_unreadable_count; false with a
   * message. */
  virtual bool unreadable(const char *who, long &count) = 0;

  /* A record, positive or special, whose slots are the field indexes; valid until the
   * next call on this source.  Null, with a message in the name of `who`. */
  virtual const expr::Record *record(const char *who, long number) = 0;

  /* The stored table, if this is one, else null. */
  virtual TableSource *table() { return nullptr; }
};

/* The names that an expression over a source may use. */
class SourceFields final : public expr::Fields {
 public:
  /* A null source has no names. */
  explicit SourceFields(const RecordSource *source) : source_(source) {}
  bool bind(std::string_view name, int &slot, expr::Type &type) const override;

 private:
  const RecordSource *source_;
};

}  // namespace ksutil::db
#endif
