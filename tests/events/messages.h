/* The registered messages, for the tests of events. */
#ifndef KSUTIL_TESTS_EVENTS_MESSAGES_H
#define KSUTIL_TESTS_EVENTS_MESSAGES_H

#include "core/register.h"
#include "tests/support/register.h"

using ksutil::test::registered_messages;
using ksutil::test::taken_messages;

#endif
