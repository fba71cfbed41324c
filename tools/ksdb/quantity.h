/* quantity: names what an expression measures, for headings, axes and keys. */
#ifndef KSUTIL_TOOLS_KSDB_QUANTITY_H
#define KSUTIL_TOOLS_KSDB_QUANTITY_H

#include <string>

#include "platform/db/db.h"
#include "platform/db/schema.h"

namespace ksutil::tools {

/* The unit of a field in ASCII ("deg", "km", "s/deg"), with which its description in the
 * schema begins; empty for times, for numbers without a unit and for texts. */
std::string unit_of(const db::Field &field);

struct Quantity {
  std::string label;  // the expression, for a field with its unit: "depth (km)"
  bool time = false;  // a field of epoch seconds
  bool down = false;  // a field that counts downward
};

/* The quantity of a field of a table or view; of any other expression only the label is
 * known.  Throws std::bad_alloc. */
Quantity quantity_of(Dbptr view, const std::string &expression);

}  // namespace ksutil::tools
#endif
