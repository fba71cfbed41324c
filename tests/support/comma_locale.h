/* A locale that writes reals with a comma, for the process, for one scope.
 *
 * It uses the system's German locale or builds one with localedef in a temporary folder;
 * `ready()` is false where neither exists. */
#ifndef KSUTIL_TESTS_SUPPORT_COMMA_LOCALE_H
#define KSUTIL_TESTS_SUPPORT_COMMA_LOCALE_H

#include <locale.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "tests/support/folder.h"

class CommaLocale {
 public:
  CommaLocale() : previous_(setlocale(LC_ALL, nullptr)) {
    ready_ = setlocale(LC_ALL, "de_DE.UTF-8") != nullptr || build();
  }
  ~CommaLocale() {
    setlocale(LC_ALL, previous_.c_str());
    if (!folder_) return;
    unsetenv("LOCPATH");
  }
  CommaLocale(const CommaLocale &) = delete;
  CommaLocale &operator=(const CommaLocale &) = delete;

  bool ready() const { return ready_; }

 private:
  bool build() {
    folder_.emplace();
    const std::string command = "localedef -i de_DE -f UTF-8 " + folder_->path() +
                                "/de_DE.UTF-8 >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) return false;
    setenv("LOCPATH", folder_->path().c_str(), 1);
    return setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
  }

  std::string previous_;
  std::optional<ksutil::test::TempFolder> folder_;
  bool ready_ = false;
};

#endif
