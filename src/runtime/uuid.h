// Random identifiers for exceptions and temporary names.
#pragma once

#include <string>

namespace quelt {

// A 36-character version-4-shaped identifier drawn from rand(): 8-4-4-4-12 lower-case hex
// digits, the third group starting with '4' and the fourth with '8'.
std::string newUUID();

}  // namespace quelt
