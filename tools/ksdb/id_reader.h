/* id_reader: reads the ids in a field as integers, and finds them among the ids of a
 * table. */
#ifndef KSUTIL_TOOLS_KSDB_ID_READER_H
#define KSUTIL_TOOLS_KSDB_ID_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/schema.h"

namespace ksutil::tools {

/* Numbers for texts: a text that is an integer in its shortest form has its own value,
 * other texts have numbers at the lower end of the range. */
class TextNumbers {
 public:
  std::int64_t number(std::string_view text);
  std::string text(std::int64_t number) const;

 private:
  std::unordered_map<std::string, std::int64_t> numbers_;
  std::vector<std::string> texts_;
};

/* Reads one field of the rows of a layout.  Equal values have equal ids however they are
 * written: "007" and "7" are one id.  The texts stay with `texts`, which outlives the
 * reader. */
class IdReader {
 public:
  IdReader(const db::Relation &layout, const std::string &field, TextNumbers &texts);
  bool valid() const { return field_ != nullptr; }

  /* False for a null or unreadable value. */
  bool read(std::string_view row, std::int64_t &id) const;

 private:
  const db::Field *field_;
  bool number_;
  db::IntegerColumn integer_;
  TextNumbers &texts_;
};

/* A set of ids, which is filled first and asked then.  It costs 8 bytes for each id, or
 * a bit for each number of the range where ids are dense. */
class IdSet {
 public:
  void add(std::int64_t id) { ids_.push_back(id); }
  /* Between the last add and the first contains. */
  void settle();
  bool contains(std::int64_t id) const;

 private:
  std::vector<std::int64_t> ids_;  // ascending
  std::int64_t first_ = 0;         // the id of the first bit
  std::vector<bool> bits_;
};

}  // namespace ksutil::tools
#endif
