/* dispatch: runs the operation that a command names and answers its client. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_DISPATCH_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_DISPATCH_H

#include "events/command.h"

namespace ksutil::events {

struct ServerState;

/* Runs the operation with the command's exact name.  If the client still waits, writes
 * the result and then clears the pending flag, also after a failure or an exception.
 * An unknown name has no effect. */
void dispatch(ServerState &state, EVCommand &command);

}  // namespace ksutil::events
#endif
