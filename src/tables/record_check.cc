// What the table store refuses to hand postmap, and how it tells that postmap dropped input.
#include "tables/record_check.h"

#include <cstdio>
#include <sstream>

namespace quelt::mail::postfix {

namespace {

bool holdsLineBreak(const std::string& s)
{
    return s.find_first_of("\n\r") != std::string::npos;
}

bool holdsNul(const std::string& s)
{
    return s.find('\0') != std::string::npos;
}

}  // namespace

const char* recordFault(const std::string& key, const std::string* value)
{
    if (key.empty())
        return "is empty";
    if (holdsLineBreak(key))
        return "holds a line break";
    if (key.find_first_of(" \t") != std::string::npos)
        return "holds a blank";
    if (holdsNul(key))
        return "holds a NUL byte";
    // postmap reads such a line as a comment.
    if (key[0] == '#')
        return "begins with '#'";
    if (value && holdsLineBreak(*value))
        return "has a value holding a line break";
    if (value && holdsNul(*value))
        return "has a value holding a NUL byte";
    return nullptr;
}

std::string escapeBytes(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        default:
            if (c >= 0x20 && c < 0x7f) {
                out += c;
            } else {
                char hex[5];
                std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
                out += hex;
            }
        }
    }
    return out;
}

std::string refusalText(const std::string& table, const std::string& key, const char* fault,
                        bool removal)
{
    return std::string(removal ? "refused to remove from " : "refused to add to ") + table +
           ": the key \"" + escapeBytes(key) + "\" " + fault;
}

bool droppedInput(const std::string& diagnostics)
{
    static const char* const kDropped[] = {
        "-- ignoring this line",
        "expected format: key whitespace value",
        "logical line must not start with whitespace",
        "duplicate entry",
    };
    std::istringstream lines(diagnostics);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(": warning: ") == std::string::npos)
            continue;
        for (const char* dropped : kDropped)
            if (line.find(dropped) != std::string::npos)
                return true;
    }
    return false;
}

}  // namespace quelt::mail::postfix
