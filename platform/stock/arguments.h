/* Arguments: reads the variable arguments of a function, and ends them with its scope, also
 * when something throws. */
#ifndef KSUTIL_PLATFORM_STOCK_ARGUMENTS_H
#define KSUTIL_PLATFORM_STOCK_ARGUMENTS_H

#include <cstdarg>

namespace ksutil {

class Arguments {
 public:
  /* Reads a copy: the caller ends its own list. */
  explicit Arguments(va_list args) { va_copy(args_, args); }
  ~Arguments() { va_end(args_); }
  Arguments(const Arguments &) = delete;
  Arguments &operator=(const Arguments &) = delete;

  /* The next argument, which must have the type T after the default promotions. */
  template <class T>
  T next() {
    return va_arg(args_, T);
  }

 private:
  va_list args_;
};

}  // namespace ksutil
#endif
