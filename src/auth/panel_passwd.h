// Password-database changes spread over a domain's aliases or a mailname's mail aliases, as the
// panel database lists them. Each returns -1 on failure (logged; changes made so far stay),
// otherwise 0 when there was nothing to spread to and 1 when there was.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "auth/panel_db.h"

// Removes the user from the domain and from each of its domain aliases.
int rm_mname_from_domains(const std::string& mailname, const std::string& domain);
// rm_mname_from_domains for the mailname and for each of its mail aliases.
int rm_mails_from_domains(const std::string& mailname, const std::string& domain);
// set_postbox_passwd for the domain and each of its domain aliases.
int set_passwd_for_domains(const std::string& mailname, const std::string& domain,
                           const std::optional<std::string>& password, int flags);
// set_passwd_for_domains for the mailname and each of its mail aliases.
int set_mass_postbox_passwd(const std::string& mailname, const std::string& domain,
                            const std::optional<std::string>& password, int flags);

// A password-database operation on one domain name (0 on success), e.g. mailAuthRemoveDomain.
using DomainAuthAction = std::function<int(const std::string& domain)>;
// `action` for the domain and each of its domain aliases; `actionWords` names it in messages.
int domain_auth_action(const std::string& domain, const DomainAuthAction& action, const std::string& actionWords);

// Clones the registrations of the domain's mailnames and their mail aliases to the new alias:
// 0 when the panel lists no mailnames, 1 otherwise.
int add_domain_auth_alias(const std::string& domain, const std::string& domainAlias);
// The same over a list already fetched: no list gives 0, an empty list 1.
int add_domain_auth_alias_for(const StringList& mailnames, const std::string& domain, const std::string& domainAlias);
// Removes the alias domain's rows; then its domain's mail aliases under the alias. 0 or -1.
int rm_domain_auth_alias(const std::string& domainAlias);

namespace quelt::mail {

// Appends the domain's aliases, in query order; a failed lookup appends nothing.
void append_domainaliases_by_domain(std::vector<std::string>& names, const std::string& domain);

}  // namespace quelt::mail
