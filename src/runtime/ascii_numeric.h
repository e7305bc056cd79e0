// Strict decimal conversion for option validators and address parsers.
#pragma once

#include <cstdint>
#include <string>

namespace Util {

// Accepts optional surrounding blanks and one leading "+", then 0..65535; anything else, a
// "-" included, gives false (ERANGE in errno on overflow). `out` is written only on success.
bool ASCIIToNumeric(const std::string& text, std::uint16_t& out);

}  // namespace Util
