#include "events/client/type_layouts.h"

namespace ksutil::events {

std::uint64_t library_type_layouts() { return kTypeLayouts; }

}  // namespace ksutil::events
