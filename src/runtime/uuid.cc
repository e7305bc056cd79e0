// Random identifiers for exceptions and temporary names.
#include "runtime/uuid.h"

#include <cstdlib>

namespace quelt {

std::string newUUID()
{
    static const char digits[] = "0123456789abcdef";
    static const int groups[] = {8, 4, 4, 4, 12};
    std::string id;
    id.reserve(36);
    for (int g = 0; g < 5; ++g) {
        if (g > 0)
            id += '-';
        for (int i = 0; i < groups[g]; ++i) {
            if (i == 0 && g == 2)
                id += '4';
            else if (i == 0 && g == 3)
                id += '8';
            else
                id += digits[std::rand() & 15];
        }
    }
    return id;
}

}  // namespace quelt
