/* owners: frees a parameter tree at the end of its scope. */
#ifndef KSUTIL_PLATFORM_PF_OWNERS_H
#define KSUTIL_PLATFORM_PF_OWNERS_H

#include <memory>

#include "platform/pf/pf.h"

namespace ksutil {

struct FreePf {
  void operator()(Pf *pf) const { pffree(pf); }
};

/* A tree that pfcompile, pfread or pfnew has made; never one inside another tree. */
using PfOwner = std::unique_ptr<Pf, FreePf>;

}  // namespace ksutil
#endif
