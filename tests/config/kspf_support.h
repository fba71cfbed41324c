/* kspf_support: parameter files from texts, and back. */
#ifndef KSUTIL_TESTS_CONFIG_KSPF_SUPPORT_H
#define KSUTIL_TESTS_CONFIG_KSPF_SUPPORT_H

#include <gtest/gtest.h>

#include <string>

#include "config/kspf.h"
#include "tests/support/register.h"

namespace ksutil::test {

inline std::string text_of(const KSPf &pf) {
  std::string text;
  EXPECT_EQ(pf.text(text), 0);
  return text;
}

inline KSPf pf_of(const std::string &text, const std::string &name = "") {
  KSPf pf;
  EXPECT_EQ(pf.readText(text, name), 0) << taken_messages();
  return pf;
}

}  // namespace ksutil::test
#endif
