/* From the name of a command to what is done for it. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_DISPATCH_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_DISPATCH_H

#include "events/command.h"

namespace ksutil::events {

struct ServerState;

/* Runs the operation of the command's name, which must be exact, and answers its client
 * when that is still registered: the result first, the pending flag last, also when the
 * operation has failed or thrown.  An unknown name has no effect. */
void dispatch(ServerState &state, EVCommand &command);

}  // namespace ksutil::events
#endif
