// Validation of a mailname (the local part of a mailbox address).
#include "model/names/mailname.h"

#include <cctype>
#include <cstring>

int is_mailname_valid(const char* name)
{
    if (!name)
        return 0;
    const std::size_t length = std::strlen(name);
    if (length < 1 || length > 245)
        return 0;
    if (name[0] == '.' || name[length - 1] == '.' || std::strstr(name, ".."))
        return 0;
    for (const char* p = name; *p; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        // isalpha would accept some bytes from 0x80 in other locales; mailnames are ASCII.
        if (c >= 0x80)
            return 0;
        if (!std::isalpha(c) && !std::isdigit(c) && !std::strchr(".-_&+',", c))
            return 0;
    }
    return 1;
}
