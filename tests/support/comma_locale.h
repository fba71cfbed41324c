/* A locale that writes reals with a comma, for the process, for one scope.
 *
 * It uses the system's German locale or builds one with localedef in a temporary folder;
 * `ready()` is false where neither exists. */
#ifndef KSUTIL_TESTS_SUPPORT_COMMA_LOCALE_H
#define KSUTIL_TESTS_SUPPORT_COMMA_LOCALE_H

#include <locale.h>

#include <cstdlib>
#include <filesystem>
#include <string>

class CommaLocale {
 public:
  CommaLocale() : previous_(setlocale(LC_ALL, nullptr)) {
    ready_ = setlocale(LC_ALL, "de_DE.UTF-8") != nullptr || build();
  }
  ~CommaLocale() {
    setlocale(LC_ALL, previous_.c_str());
    if (folder_.empty()) return;
    unsetenv("LOCPATH");
    std::filesystem::remove_all(folder_);
  }
  CommaLocale(const CommaLocale &) = delete;
  CommaLocale &operator=(const CommaLocale &) = delete;

  bool ready() const { return ready_; }

 private:
  bool build() {
    char name[] = "/tmp/ksutil_locale_XXXXXX";
    if (mkdtemp(name) == nullptr) return false;
    folder_ = name;
    const std::string command =
        "localedef -i de_DE -f UTF-8 " + folder_ + "/de_DE.UTF-8 >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) return false;
    setenv("LOCPATH", folder_.c_str(), 1);
    return setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
  }

  std::string previous_, folder_;
  bool ready_ = false;
};

#endif
