/* What an expression measures, for the labels of axes and keys. */
#ifndef KSUTIL_TOOLS_KSDB_QUANTITY_H
#define KSUTIL_TOOLS_KSDB_QUANTITY_H

#include <string>

#include "platform/db/db.h"

namespace ksutil::tools {

struct Quantity {
  std::string label;  // the expression, for a field with its unit: "depth (km)"
  bool time = false;  // a field of epoch seconds
  bool down = false;  // a field that counts downward
};

/* Knows fields; of other expressions only the text. */
Quantity quantity_of(Dbptr view, const std::string &expression);

}  // namespace ksutil::tools
#endif
