/* response: the response of an instrument as an object of Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_WAVEFORMS_RESPONSE_H
#define KSUTIL_PYTHON_BINDINGS_WAVEFORMS_RESPONSE_H

#include "waveforms/response.h"

#include <string>

namespace ksutil::python {

/* 0, 1 or 2 for "D", "V" and "A"; ValueError for another text. */
int derivative_of(const std::string &motion);

}  // namespace ksutil::python
#endif
