/* type_layouts: tells whether an extension and the library that is loaded beside it were
 * built with the same C++ types. */
#ifndef KSUTIL_EVENTS_CLIENT_TYPE_LAYOUTS_H
#define KSUTIL_EVENTS_CLIENT_TYPE_LAYOUTS_H

#include <cstddef>
#include <cstdint>

#include "core/version.h"
#include "events/evclient.h"
#include "events/evserver.h"
#include "events/kseventview.h"
#include "events/records.h"
#include "platform/db/columns.h"
#include "platform/db/row_text.h"
#include "platform/db/schema.h"
#include "platform/db/view_rows.h"
#include "platform/stock/export.h"

namespace ksutil::events {

/* A number made of the version and of the sizes of types that extensions share with the
 * library: another number means another layout.  Each side calculates it from the headers
 * that it is compiled with. */
inline constexpr std::uint64_t kTypeLayouts = [] {
  const std::size_t sizes[] = {
      KSUTIL_VERSION_NUMBER,  sizeof(EVEvent),        sizeof(EVOrigin),
      sizeof(EVMagnitude),    sizeof(EVStamag),       sizeof(EVMoment),
      sizeof(EVAssociation),  sizeof(EVDetection),    sizeof(EVTableRecord),
      sizeof(EVResponse),     sizeof(EVServer),       sizeof(EVClient),
      sizeof(EVQueryToken),   sizeof(KSEventView),    sizeof(db::Field),
      sizeof(db::Relation),   sizeof(db::RowText),    sizeof(db::IntegerColumn),
      sizeof(db::RealColumn), sizeof(db::TextColumn), sizeof(db::ViewRows)};
  std::uint64_t number = 14695981039346656037U;  // FNV-1a
  for (const std::size_t size : sizes) number = (number ^ size) * 1099511628211U;
  return number;
}();

/* The number that the library was compiled with. */
KSUTIL_API std::uint64_t library_type_layouts();

}  // namespace ksutil::events
#endif
