// IP addresses as the settings and sender transports write them.
#include "model/names/ip_addr.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>

#include <boost/regex.hpp>

#include "runtime/ascii_numeric.h"

namespace {

const boost::regex kIPv4(R"((\d{1,3}\.\d{1,3}\.\d{1,3}\.\d{1,3})/?(\d{0,2}))");
const boost::regex kIPv6(R"(\[?([0-9:a-fA-F]+)\]?/?(\d{0,3}))");

std::uint16_t prefixOf(const std::string& group)
{
    std::uint16_t prefix = 0;
    if (group.empty() || !Util::ASCIIToNumeric(group, prefix))
        return 0;
    return prefix;
}

struct AddrText : boost::static_visitor<const std::string&> {
    const std::string& operator()(const Network::IPv4Addr& a) const { return a.addr(); }
    const std::string& operator()(const Network::IPv6Addr& a) const { return a.addr(); }
    const std::string& operator()(const std::string& text) const { return text; }
};

struct QuotedText : boost::static_visitor<std::string> {
    std::string operator()(const Network::IPv4Addr& a) const { return a.to_string(); }
    std::string operator()(const Network::IPv6Addr& a) const { return a.to_quoted_string(); }
    std::string operator()(const std::string& text) const { return text; }
};

}  // namespace

int isLoopbackIP(const char* text)
{
    if (std::strncmp(text, "127.", 4) == 0)
        return 1;
    unsigned char bytes[16];
    if (::inet_pton(AF_INET6, text, bytes) != 1)
        return 0;
    static const unsigned char loopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    static const unsigned char mapped[13] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 127};
    return std::memcmp(bytes, loopback, 16) == 0 || std::memcmp(bytes, mapped, 13) == 0;
}

namespace Network {

std::string IPv4Addr::to_string() const
{
    return addr_ + "/" + std::to_string(prefix_);
}

std::string IPv6Addr::to_quoted_string() const
{
    return "[" + addr_ + "]/" + std::to_string(prefix_);
}

IPAnyAddr::IPAnyAddr(const std::string& text)
{
    boost::smatch match;
    if (boost::regex_match(text, match, kIPv4))
        value_ = IPv4Addr(match[1], prefixOf(match[2]));
    else if (boost::regex_match(text, match, kIPv6))
        value_ = IPv6Addr(match[1], prefixOf(match[2]));
    else
        value_ = text;
}

IPAnyAddr::IPAnyAddr(const std::string& text, std::uint16_t prefix)
{
    if (text.find(':') != std::string::npos)
        value_ = IPv6Addr(text, prefix);
    else
        value_ = IPv4Addr(text, prefix);
}

int IPAnyAddr::family() const
{
    switch (value_.which()) {
    case 0: return AF_INET;
    case 1: return AF_INET6;
    default: return 0;
    }
}

const std::string& IPAnyAddr::addr_string() const
{
    return boost::apply_visitor(AddrText(), value_);
}

std::string IPAnyAddr::to_quoted_string() const
{
    return boost::apply_visitor(QuotedText(), value_);
}

bool IPAnyAddr::addr_eq(const IPAnyAddr& other) const
{
    if (family() != other.family())
        return false;
    if (addr_string() == other.addr_string())
        return true;
    if (family() == 0)
        return false;
    // Unparsable texts leave their buffers zeroed, and so compare equal to each other.
    unsigned char mine[16] = {};
    unsigned char theirs[16] = {};
    ::inet_pton(family(), addr_string().c_str(), mine);
    ::inet_pton(family(), other.addr_string().c_str(), theirs);
    return std::memcmp(mine, theirs, 16) == 0;
}

}  // namespace Network
