/* event_tree: prints an event with all records below it, field by field. */
#ifndef KSUTIL_TOOLS_KSEVENTS_EVENT_TREE_H
#define KSUTIL_TOOLS_KSEVENTS_EVENT_TREE_H

#include "events/evserver.h"

namespace ksutil::tools {

void print_tree(EVServer &server, EVEvent &event);

}  // namespace ksutil::tools
#endif
