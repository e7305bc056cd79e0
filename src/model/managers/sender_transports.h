// Sender-dependent transports: the SMTP client services of master.cf bound to a domain's own
// source addresses, and the sdd_transport_maps records that send each domain's mail through
// its service.
#pragma once

#include <string>

#include "config/master/module_info.h"

namespace quelt::mail::postfix {

// Stateless. Address texts are taken as given: the command boundary checks them.
class SenderTransportManager {
public:
    // The transport of an address pair: the IPv4 text, "-", the IPv6 text, every ":" then a
    // "-" ("192.0.2.7-", "-2001-db8--1"); an absent address is the empty text.
    static std::string transportName(const std::string& ipv4, const std::string& ipv6);

    // The SMTP client service of the pair: "<name> unix - n n - - smtp -o
    // smtp_bind_address=<ipv4> -o smtp_bind_address6=<ipv6> -o smtp_address_preference=<p>",
    // p being ipv6 without an IPv4 address, ipv4 without an IPv6 one, else any.
    static ModuleInfo SenderTransport(const std::string& ipv4, const std::string& ipv6);

    // Sends the domain's mail through the pair's transport: "@<domain>" -> "<name>:" in
    // sdd_transport_maps. Throws PostfixConfigurationError.
    static void addDomainToTransport(const std::string& domain, std::string ipv4, std::string ipv6);

    // Drops, from master.cf and master.cf.disabled, every transport service whose IPv4 or IPv6
    // part is the address `ip` (any spelling of it), and stores the files. A service whose name
    // does not split into such a pair, or whose other part is no address, is not ours and stays.
    static void removeTransport(const std::string& ip);
};

}  // namespace quelt::mail::postfix
