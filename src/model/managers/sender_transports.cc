// Sender-dependent transports in master.cf and sdd_transport_maps.
#include "model/managers/sender_transports.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <optional>

#include <boost/algorithm/string/replace.hpp>

#include "config/master/module_manager.h"
#include "tables/batch_database_helper.h"
#include "tables/table_names.h"

namespace quelt::mail::postfix {

namespace {

// An address as its family and bytes, so that two spellings of one address compare equal.
struct Address {
    int family = 0;
    std::array<unsigned char, 16> bytes{};
    bool operator==(const Address& other) const { return family == other.family && bytes == other.bytes; }
};

std::optional<Address> parse(int family, const std::string& text)
{
    Address address;
    address.family = family;
    if (text.find('\0') != std::string::npos || ::inet_pton(family, text.c_str(), address.bytes.data()) != 1)
        return std::nullopt;
    return address;
}

std::optional<Address> parseAny(const std::string& text)
{
    if (auto v4 = parse(AF_INET, text))
        return v4;
    return parse(AF_INET6, text);
}

// The pair a transport name stands for, or nothing when the name is no transport name: the
// IPv4 text holds no "-", so the first "-" ends it; the rest is the IPv6 text with its ":"
// turned into "-". Either part may be empty, not both.
std::optional<std::pair<std::optional<Address>, std::optional<Address>>> pairOf(const std::string& name)
{
    const std::string::size_type dash = name.find('-');
    if (dash == std::string::npos || name.size() == 1)
        return std::nullopt;
    const std::string ipv4 = name.substr(0, dash);
    const std::string ipv6 = boost::algorithm::replace_all_copy(name.substr(dash + 1), "-", ":");
    std::optional<Address> v4, v6;
    if (!ipv4.empty() && !(v4 = parse(AF_INET, ipv4)))
        return std::nullopt;
    if (!ipv6.empty() && !(v6 = parse(AF_INET6, ipv6)))
        return std::nullopt;
    return std::make_pair(v4, v6);
}

}  // namespace

std::string SenderTransportManager::transportName(const std::string& ipv4, const std::string& ipv6)
{
    return boost::algorithm::replace_all_copy(ipv4 + "-" + ipv6, ":", "-");
}

ModuleInfo SenderTransportManager::SenderTransport(const std::string& ipv4, const std::string& ipv6)
{
    const char* preference = ipv4.empty() ? "ipv6" : ipv6.empty() ? "ipv4" : "any";
    ModuleInfo info;
    info.name = transportName(ipv4, ipv6);
    info.type = unix;
    info.priv = boost::indeterminate;
    info.unpriv = false;
    info.chroot = false;
    info.wakeup = -1;
    info.wakeupOnDemand = false;
    info.maxproc = -1;
    info.command = {"smtp", "-o smtp_bind_address=" + ipv4, "-o smtp_bind_address6=" + ipv6,
                    std::string("-o smtp_address_preference=") + preference};
    return info;
}

void SenderTransportManager::addDomainToTransport(const std::string& domain, std::string ipv4, std::string ipv6)
{
    BatchDatabaseHelper batch(true, true);
    batch.addChange(tables::kSenderTransports, "@" + domain, transportName(ipv4, ipv6) + ":");
}

void SenderTransportManager::removeTransport(const std::string& ip)
{
    ModuleManager& modules = ModuleManager::getInstance();
    modules.loadModules(false);
    const std::optional<Address> address = parseAny(ip);
    if (address) {
        for (const ModuleInfo& info : modules.modules()) {
            if (info.type != unix)
                continue;
            const auto pair = pairOf(info.name);
            if (pair && (pair->first == address || pair->second == address))
                modules.removeModule(info.name, unix);
        }
    }
    modules.storeModules(false);
}

}  // namespace quelt::mail::postfix
