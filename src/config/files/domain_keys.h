// The DomainKeys private-key files of the domains: /etc/domainkeys/<domain>/default.
#pragma once

#include <optional>
#include <string>

// The key file's path for the domain, lower-cased; nothing (after printing why) when the path
// would be too long.
std::optional<std::string> get_domainkeys_file(const std::string& domain);

// 1 when the domain has a key file (a regular file), else 0.
int domainkeys_enabled(const std::string& domain);

// Copies `keyFile` atomically to the key file of every domain of the comma-separated list,
// owned by root and popuser's group, mode 0440. A domain that is no plain lower-case DNS name
// after folding is refused and the others are still done. 0, or -1 after printing why.
int set_domain_key(const std::string& domains, const std::string& keyFile);

// Gives the domains of `toDomains` the key of `fromDomain`; a domain without a key changes
// nothing and gives 0.
int clone_domain_key(const std::string& fromDomain, const std::string& toDomains);

// Removes the key folder of every domain of the comma-separated list. 0, or -1 as above.
int remove_domain_key(const std::string& domains);
