// Classification of the diagnostics that Postfix's tools print on standard error.
#include "config/maincf/check_output.h"

namespace quelt::mail::postfix {

namespace {

// The severity word must follow the program name's colon and itself end in a colon.
bool lineHasError(const std::string& text, std::string::size_type begin,
                  std::string::size_type end, bool strict)
{
    const std::string::size_type colon = text.find(':', begin);
    if (colon == std::string::npos || colon + 1 >= end)
        return false;
    const std::string::size_type word = text.find_first_not_of(' ', colon + 1);
    if (word == std::string::npos || word >= end)
        return false;
    const std::string::size_type next = text.find(':', word + 1);
    if (next == std::string::npos || next >= end)
        return false;
    auto startsWith = [&](const char* severity, std::string::size_type length) {
        return word + length <= end && text.compare(word, length, severity) == 0;
    };
    return startsWith("panic:", 6) || startsWith("fatal:", 6) || startsWith("error:", 6) ||
           (strict && startsWith("warning:", 8));
}

}  // namespace

bool checkOutput(const std::string& text, bool strict)
{
    std::string::size_type begin = 0;
    while (begin < text.size()) {
        std::string::size_type end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        if (lineHasError(text, begin, end, strict))
            return false;
        begin = end + 1;
    }
    return true;
}

}  // namespace quelt::mail::postfix
