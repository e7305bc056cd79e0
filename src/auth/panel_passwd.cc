// Password-database changes applied to a domain with its aliases or a mailname with its aliases.
#include "auth/panel_passwd.h"

#include <syslog.h>

#include "auth/passwd_db.h"
#include "runtime/log.h"

namespace {

using NameStep = std::function<bool(const std::string& name)>;

bool none(const StringList& list)
{
    return !list || list->empty();
}

// Runs `step` on each listed name in order: 0 when there is no list or it is empty, -1 at the
// first step that fails (the step has logged why), 1 otherwise.
int forEachName(const StringList& names, const NameStep& step)
{
    if (none(names))
        return 0;
    for (const auto& name : *names)
        if (!step(name))
            return -1;
    return 1;
}

// Fetches the domain's aliases; a failed lookup is logged as "Unable to get <what> for domain <domain>".
bool lookupDomainAliases(StringList& aliases, const std::string& domain, const char* what)
{
    if (get_domaliases_by_domain(nullptr, aliases, domain) == 0)
        return true;
    quelt_log(LOG_ERR, "Unable to get %s for domain %s", what, domain.c_str());
    return false;
}

}  // namespace

int rm_mname_from_domains(const std::string& mailname, const std::string& domain)
{
    const auto remove = [&](const std::string& name) {
        if (mailAuthRemove(mailname, name) == 0)
            return true;
        quelt_log(LOG_ERR, "Unable to remove mailname %s@%s", mailname.c_str(), name.c_str());
        return false;
    };
    StringList aliases;
    if (!remove(domain) || !lookupDomainAliases(aliases, domain, "domain aliases"))
        return -1;
    return forEachName(aliases, remove);
}

int rm_mails_from_domains(const std::string& mailname, const std::string& domain)
{
    if (mailAuthRemove(mailname, domain) != 0) {
        quelt_log(LOG_ERR, "Unable to remove mailname %s@%s", mailname.c_str(), domain.c_str());
        return -1;
    }
    const auto removeFromDomains = [&](const std::string& name) {
        if (rm_mname_from_domains(name, domain) >= 0)
            return true;
        quelt_log(LOG_ERR, "Unable to remove mailname from domain aliases");
        return false;
    };
    if (!removeFromDomains(mailname))
        return -1;
    StringList mailAliases;
    if (get_aliases_by_mailname(nullptr, mailAliases, mailname, domain) != 0) {
        quelt_log(LOG_ERR, "Unable to get mail aliases for mailname %s@%s", mailname.c_str(), domain.c_str());
        return -1;
    }
    return forEachName(mailAliases, removeFromDomains);
}

int set_passwd_for_domains(const std::string& mailname, const std::string& domain,
                           const std::optional<std::string>& password, int flags)
{
    if (set_postbox_passwd(mailname, domain, password, flags) != 0) {
        quelt_log(LOG_ERR, "Unable to set password for mailname %s@%s", mailname.c_str(), domain.c_str());
        return -1;
    }
    StringList aliases;
    if (!lookupDomainAliases(aliases, domain, "domain aliases"))
        return -1;
    // A failure on an alias is left to the password database's own message.
    return forEachName(aliases, [&](const std::string& alias) {
        return set_postbox_passwd(mailname, alias, password, flags) == 0;
    });
}

int set_mass_postbox_passwd(const std::string& mailname, const std::string& domain,
                            const std::optional<std::string>& password, int flags)
{
    const auto setForDomains = [&](const std::string& name) {
        return set_passwd_for_domains(name, domain, password, flags) >= 0;
    };
    if (!setForDomains(mailname))
        return -1;
    StringList mailAliases;
    if (get_aliases_by_mailname(nullptr, mailAliases, mailname, domain) != 0)
        return -1;
    return forEachName(mailAliases, setForDomains);
}

int domain_auth_action(const std::string& domain, const DomainAuthAction& action, const std::string& actionWords)
{
    if (action(domain) != 0) {
        quelt_log(LOG_ERR, "Unable to %s for domain %s", actionWords.c_str(), domain.c_str());
        return -1;
    }
    StringList aliases;
    if (!lookupDomainAliases(aliases, domain, "aliases"))
        return -1;
    return forEachName(aliases, [&](const std::string& alias) {
        if (action(alias) == 0)
            return true;
        quelt_log(LOG_ERR, "Unable to %s for domain alias %s", actionWords.c_str(), alias.c_str());
        return false;
    });
}

int add_domain_auth_alias(const std::string& domain, const std::string& domainAlias)
{
    StringList mailnames;
    if (get_mailnames_by_domain(nullptr, mailnames, domain) != 0) {
        quelt_log(LOG_ERR, "Unable to get mailnames from domain %s", domain.c_str());
        return -1;
    }
    return add_domain_auth_alias_for(mailnames, domain, domainAlias);
}

int add_domain_auth_alias_for(const StringList& mailnames, const std::string& domain, const std::string& domainAlias)
{
    if (!mailnames)
        return 0;
    const auto clone = [&](const std::string& name) {
        if (mailAuthClone(name, domain, name, domainAlias) == 0)
            return true;
        quelt_log(LOG_ERR, "Unable to clone auth record for %s@%s", name.c_str(), domainAlias.c_str());
        return false;
    };
    for (const auto& mailname : *mailnames) {
        StringList mailAliases;
        if (get_aliases_by_mailname(nullptr, mailAliases, mailname, domain) != 0) {
            quelt_log(LOG_ERR, "Unable to get mail aliases for %s@%s", mailname.c_str(), domain.c_str());
            return -1;
        }
        if (mailAliases)
            for (const auto& alias : *mailAliases)
                if (!clone(alias))
                    return -1;
        if (!clone(mailname))
            return -1;
    }
    return 1;
}

int rm_domain_auth_alias(const std::string& domainAlias)
{
    if (mailAuthRemoveDomain(domainAlias) != 0) {
        quelt_log(LOG_ERR, "Unable to remove domain %s from auth database", domainAlias.c_str());
        return -1;
    }
    std::optional<std::string> domain;
    if (get_domain_by_domainalias(nullptr, domain, domainAlias) != 0) {
        quelt_log(LOG_ERR, "Unable to get domain by domain alias %s", domainAlias.c_str());
        return -1;
    }
    if (!domain)
        return 0;
    StringList mailnames;
    if (get_mailnames_by_domain(nullptr, mailnames, *domain) != 0) {
        quelt_log(LOG_ERR, "Unable to get mailnames from domain %s", domainAlias.c_str());
        return -1;
    }
    if (none(mailnames))
        return 0;
    for (const auto& mailname : *mailnames) {
        StringList mailAliases;
        if (get_aliases_by_mailname(nullptr, mailAliases, mailname, *domain) != 0) {
            quelt_log(LOG_ERR, "Unable to get aliases for mailname %s@%s", mailname.c_str(), domain->c_str());
            return -1;
        }
        if (!mailAliases)
            continue;
        for (const auto& alias : *mailAliases) {
            if (mailAuthRemove(alias, domainAlias) != 0) {
                quelt_log(LOG_ERR, "Unable to remove mail alias %s@%s", alias.c_str(), domainAlias.c_str());
                return -1;
            }
        }
    }
    return 0;
}

namespace quelt::mail {

void append_domainaliases_by_domain(std::vector<std::string>& names, const std::string& domain)
{
    StringList aliases;
    if (get_domaliases_by_domain(nullptr, aliases, domain) != 0 || !aliases)
        return;
    names.insert(names.end(), aliases->begin(), aliases->end());
}

}  // namespace quelt::mail
