// Quoting of a text that becomes one word of a shell command line.
#pragma once

#include <string>

namespace quelt {

// Puts a backslash before tab, space and "#$&'()*;<>?[\`|~; writes a line feed as '\n' in
// apostrophes; copies every other byte (all bytes from 0x80 too). "" gives "".
std::string sh_quote(const std::string& text);

}  // namespace quelt
