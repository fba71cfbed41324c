/* FlatDescriptor: reads the descriptor file of a flat-file database. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_DESCRIPTOR_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_DESCRIPTOR_H

#include <string>
#include <vector>

namespace ksutil::db {

/* Places where tables may be: their files are prefix + "." + table. */
using Prefixes = std::vector<std::string>;

struct FlatDescriptor {
  std::string schema;      // "" when the descriptor names none
  std::string store;       // "" for flat files, else the name of a plug-in
  std::string connection;  // of that store
  Prefixes prefixes;       // of table_path
  bool sync = false;

  /* The content of the file: at least one of the words above; a parameter file without
   * them; anything else.  kMissing until read() is called. */
  enum class Content {
    kMissing,
    kWords,
    kNoWords,
    kUnreadable
  } content = Content::kMissing;

  /* Reads the descriptor of the database of that name; false, with a message, when it
   * cannot be read or one of the words has an invalid value. */
  bool read(const std::string &name);
};

}  // namespace ksutil::db
#endif
