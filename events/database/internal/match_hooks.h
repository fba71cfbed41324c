/* match_hooks: frees the dbmatches indexes kept in EVVars. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_MATCH_HOOKS_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_MATCH_HOOKS_H

#include "events/vars.h"

namespace ksutil::events {

void free_match_hooks(EVVars &vars);

}  // namespace ksutil::events
#endif
