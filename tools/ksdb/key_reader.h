/* KeyReader: reads the values of a key of a row as one text, which is the same for equal
 * values however they are written. */
#ifndef KSUTIL_TOOLS_KSDB_KEY_READER_H
#define KSUTIL_TOOLS_KSDB_KEY_READER_H

#include <string>
#include <string_view>
#include <vector>

#include "tools/ksdb/view_field.h"

namespace ksutil::tools {

class KeyReader {
 public:
  KeyReader() = default;
  /* Names of fields; a range "low::high" stands for its two fields.  Names that the layout
   * lacks leave the reader invalid. */
  KeyReader(const db::Relation &layout, const db::Key &key);
  bool valid() const { return !fields_.empty(); }

  /* False when a value cannot be read, or when all of them are null. */
  bool read(std::string_view row, std::string &key) const;

  /* The names with their values, for messages: "sta ABC, ondate 2015001". */
  std::string describe(std::string_view row) const;

  bool names(const std::string &field) const;

 private:
  std::vector<ViewField> fields_;
};

}  // namespace ksutil::tools
#endif
