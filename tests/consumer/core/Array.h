/* Array.h: a header of the consumer's own whose name the library uses as well. */
#ifndef CONSUMER_CORE_ARRAY_H
#define CONSUMER_CORE_ARRAY_H

namespace consumer {
constexpr long kEvid = 7;
}

#endif
