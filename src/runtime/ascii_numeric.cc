// Strict decimal conversion for option validators and address parsers.
#include "runtime/ascii_numeric.h"

#include <cctype>
#include <cerrno>
#include <cstring>

namespace Util {

namespace {

bool isBlank(char c)
{
    return c != '\0' && std::strchr(" \t\n\r", c) != nullptr;
}

}  // namespace

bool ASCIIToNumeric(const std::string& text, std::uint16_t& out)
{
    std::size_t pos = 0;
    const std::size_t n = text.size();
    while (pos < n && isBlank(text[pos]))
        ++pos;
    if (pos == n)
        return false;
    if (text[pos] == '-')
        return false;
    if (text[pos] == '+') {
        ++pos;
        if (pos == n)
            return false;
        while (pos < n && isBlank(text[pos]))
            ++pos;
        if (pos == n) {
            out = 0;
            return true;
        }
    }
    if (!std::isdigit(static_cast<unsigned char>(text[pos])))
        return false;
    unsigned value = 0;
    while (pos < n && std::isdigit(static_cast<unsigned char>(text[pos]))) {
        const unsigned digit = static_cast<unsigned>(text[pos] - '0');
        if (value > (65535 - digit) / 10) {
            errno = ERANGE;
            return false;
        }
        value = value * 10 + digit;
        ++pos;
    }
    if (pos < n) {
        if (!std::isspace(static_cast<unsigned char>(text[pos])))
            return false;
        for (; pos < n; ++pos)
            if (!isBlank(text[pos]))
                return false;
    }
    out = static_cast<std::uint16_t>(value);
    return true;
}

}  // namespace Util
