#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace lumerix::test {

// Sets an environment variable for a scope and puts back what was there.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name(name) {
    if (const char* old = std::getenv(name)) saved = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() { saved ? ::setenv(name, saved->c_str(), 1) : ::unsetenv(name); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name;
  std::optional<std::string> saved;
};

}  // namespace lumerix::test
