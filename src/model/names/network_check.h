// The command boundary's check of a network given as an address and a prefix length.
#pragma once

#include <cstdint>
#include <string>

namespace quelt::names {

// Accepts an IPv4 address in dotted-quad form with a prefix of at most 32, or an IPv6 address
// with a prefix of at most 128, whose host bits beyond the prefix are zero (Postfix refuses
// any other network in its lists). Throws std::invalid_argument "invalid network
// '<address>/<prefix>'" naming what was refused.
void checkNetwork(const std::string& address, std::uint16_t prefix);

// Accepts an IPv4 or IPv6 address; throws std::invalid_argument "invalid IP address '<text>'".
void checkAddress(const std::string& address);

// An IPv4 address in dotted-quad form, returned unchanged; throws std::invalid_argument
// "invalid IPv4 address '<text>'" for anything else (a leading zero, a short form, blanks).
std::string checkedIPv4(const std::string& address);

// An IPv6 address without zone or prefix, folded to lower case; throws std::invalid_argument
// "invalid IPv6 address '<text>'".
std::string checkedIPv6(const std::string& address);

}  // namespace quelt::names
