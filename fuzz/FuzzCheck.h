#pragma once

#include <cstdio>
#include <cstdlib>

// A broken invariant is a finding: say which, and stop so the fuzzer keeps
// the input.
inline void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
  }
}
