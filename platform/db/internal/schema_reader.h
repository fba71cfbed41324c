/* SchemaReader: reads the text of a schema file; docs/schema-files.md describes the form. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_SCHEMA_READER_H
#define KSUTIL_PLATFORM_DB_INTERNAL_SCHEMA_READER_H

#include <cstddef>
#include <memory>
#include <string>

#include "platform/db/schema.h"
#include "platform/pf/pf.h"

namespace ksutil::db {

/* Bounds on the contents of a schema file. */
inline constexpr std::size_t kSchemaMaxBytes = std::size_t{1} << 20;
inline constexpr long kSchemaMaxTables = 1000;
inline constexpr long kSchemaMaxFields = 1000;
inline constexpr int kMaxFieldWidth = 4096;
inline constexpr int kMaxRecordWidth = 65534;

class SchemaReader {
 public:
  /* `source` names the text in messages: its file. */
  explicit SchemaReader(std::string source) : source_(std::move(source)) {}

  /* Null, with a message that names the source, table, field and cause. */
  std::shared_ptr<const Schema> read(const std::string &text);

 private:
  bool read_tree(Pf *tree);
  bool read_table(const char *name, Pf *tree);
  bool read_field(const char *line, Relation &relation);
  std::string line_number(const Relation &relation, const char *line) const;
  bool read_keys(Pf *tree, Relation &relation);
  bool read_key(const char *text, const Relation &relation, Key &key);
  bool read_foreign(const char *line, Relation &relation);
  bool read_counters(Pf *tree);
  bool check_foreign();
  bool refuse(const std::string &where, const std::string &cause);

  std::string source_;
  std::string text_;
  std::shared_ptr<Schema> schema_;
};

}  // namespace ksutil::db
#endif
