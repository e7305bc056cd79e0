// The command boundary's check of a network given as an address and a prefix length.
#include "model/names/network_check.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <stdexcept>

#include <boost/algorithm/string/case_conv.hpp>

#include "model/names/name_checks.h"

namespace quelt::names {

namespace {

// The address family of a plain address text (no brackets, no prefix), or 0.
int familyOf(const std::string& address, unsigned char (&bytes)[16])
{
    if (::inet_pton(AF_INET, address.c_str(), bytes) == 1)
        return AF_INET;
    if (::inet_pton(AF_INET6, address.c_str(), bytes) == 1)
        return AF_INET6;
    return 0;
}

}  // namespace

void checkAddress(const std::string& address)
{
    unsigned char bytes[16] = {};
    if (familyOf(address, bytes) == 0)
        throw std::invalid_argument("invalid IP address '" + printable(address) + "'");
}

std::string checkedIPv4(const std::string& address)
{
    unsigned char bytes[4];
    if (address.find('\0') != std::string::npos || ::inet_pton(AF_INET, address.c_str(), bytes) != 1)
        throw std::invalid_argument("invalid IPv4 address '" + printable(address) + "'");
    return address;
}

std::string checkedIPv6(const std::string& address)
{
    unsigned char bytes[16];
    if (address.find('\0') != std::string::npos || ::inet_pton(AF_INET6, address.c_str(), bytes) != 1)
        throw std::invalid_argument("invalid IPv6 address '" + printable(address) + "'");
    return boost::algorithm::to_lower_copy(address);
}

void checkNetwork(const std::string& address, std::uint16_t prefix)
{
    unsigned char bytes[16] = {};
    const int family = familyOf(address, bytes);
    const unsigned bits = family == AF_INET ? 32 : 128;
    bool valid = family != 0 && prefix <= bits;
    for (unsigned bit = prefix; valid && bit < bits; ++bit)
        if (bytes[bit / 8] & (0x80 >> (bit % 8)))
            valid = false;
    if (!valid)
        throw std::invalid_argument("invalid network '" + printable(address) + "/" + std::to_string(prefix) + "'");
}

}  // namespace quelt::names
