// What must hold for every input. Not assert: it must act in every build.
#ifndef TESTS_FUZZ_REQUIRE_H
#define TESTS_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

inline void Require(bool holds, const char* what) {
  if (!holds) {
    fprintf(stderr, "broken: %s\n", what);
    abort();
  }
}

#endif
