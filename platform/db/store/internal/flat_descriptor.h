/* FlatDescriptor: reads the descriptor file of a flat-file database. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_DESCRIPTOR_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_DESCRIPTOR_H

#include <string>
#include <vector>

namespace ksutil::db {

/* Places where tables may be: their files are prefix + "." + table. */
using Prefixes = std::vector<std::string>;

struct FlatDescriptor {
  std::string schema;  // "" when the descriptor names none
  Prefixes prefixes;   // of table_path
  bool sync = false;

  /* Reads the descriptor of the database of that name; false with a message. */
  bool read(const std::string &name);
};

}  // namespace ksutil::db
#endif
