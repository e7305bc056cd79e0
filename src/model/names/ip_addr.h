// IP addresses as the settings and sender transports write them: "10.0.0.0/8",
// "[2001:db8::1]/64", or a host name kept as text.
#pragma once

#include <cstdint>
#include <string>

#include <boost/variant.hpp>

// 1 for "127." anything, ::1 and ::ffff:127.x.y.z, else 0.
int isLoopbackIP(const char* text);

namespace Network {

class IPv4Addr {
public:
    explicit IPv4Addr(const std::string& addr = std::string(), std::uint16_t prefix = 0)
        : addr_(addr), prefix_(prefix)
    {
    }
    const std::string& addr() const { return addr_; }
    std::uint16_t prefix() const { return prefix_; }
    // "<address>/<prefix>", the prefix always written.
    std::string to_string() const;

private:
    std::string addr_;
    std::uint16_t prefix_;
};

class IPv6Addr {
public:
    explicit IPv6Addr(const std::string& addr = std::string(), std::uint16_t prefix = 0)
        : addr_(addr), prefix_(prefix)
    {
    }
    const std::string& addr() const { return addr_; }
    std::uint16_t prefix() const { return prefix_; }
    // "[<address>]/<prefix>".
    std::string to_quoted_string() const;

private:
    std::string addr_;
    std::uint16_t prefix_;
};

// An IPv4 address, an IPv6 address, or any other text (a host name), in that order of tags.
class IPAnyAddr {
public:
    using Value = boost::variant<IPv4Addr, IPv6Addr, std::string>;

    // Parses "a.b.c.d[/nn]" and "[hex:...][/nnn]"; anything else stays plain text. Never fails;
    // a missing or unreadable prefix is 0.
    explicit IPAnyAddr(const std::string& text);
    // IPv6 when `text` holds ":", else IPv4; no validation.
    IPAnyAddr(const std::string& text, std::uint16_t prefix);

    // AF_INET (2), AF_INET6 (10), or 0 for plain text.
    int family() const;
    const std::string& addr_string() const;
    // The IPv4 to_string, the IPv6 to_quoted_string, or the text itself.
    std::string to_quoted_string() const;
    // Same family and the same address (as bytes for addresses); prefixes are not compared.
    bool addr_eq(const IPAnyAddr& other) const;

    const Value& value() const { return value_; }

private:
    Value value_;
};

}  // namespace Network
