/* elog_take: gives the calling thread's messages to code that passes them on itself, such
 * as the text of an exception. */
#ifndef KSUTIL_PLATFORM_ELOG_ELOG_TAKE_H
#define KSUTIL_PLATFORM_ELOG_ELOG_TAKE_H

#include "platform/stock/export.h"

extern "C" {

/* Takes this thread's messages since the mark (of elog_mark) out of the register: a new
 * text with them in order, "" when there are none; the caller frees it.  Null when memory
 * is short, with the messages discarded.  Other threads' messages stay.  Keeps errno. */
KSUTIL_API char *elog_take(int mark);

}  // extern "C"
#endif
