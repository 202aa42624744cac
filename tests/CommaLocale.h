#pragma once

#include <clocale>

namespace lumerix::test {

// The process runs in a locale that writes "7,0" for 7.0 (GTK sets the
// user's locale at start) for as long as this lives; ok is false where no
// such locale is installed (the test should skip).
class CommaLocale {
 public:
  CommaLocale() {
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "ru_RU.UTF-8"}) {
      if (std::setlocale(LC_ALL, name)) {
        ok = true;
        return;
      }
    }
  }
  ~CommaLocale() { std::setlocale(LC_ALL, "C"); }
  CommaLocale(const CommaLocale&) = delete;
  CommaLocale& operator=(const CommaLocale&) = delete;
  bool ok = false;
};

}  // namespace lumerix::test
