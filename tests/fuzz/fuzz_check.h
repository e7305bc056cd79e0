// What every fuzz target reports when a property fails: the property, then an abort, so that
// libFuzzer keeps the input.
#pragma once

#include <cstdio>
#include <cstdlib>

[[noreturn]] inline void fuzzFailure(const char* target, const char* what)
{
    std::fprintf(stderr, "%s fuzz: %s\n", target, what);
    std::abort();
}
