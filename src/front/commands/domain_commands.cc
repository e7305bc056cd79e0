// The domain commands: add, remove, turn on, turn off, and the domain disk quota.
#include "front/commands/domain_commands.h"

#include <csignal>
#include <cstdint>

#include "auth/panel_passwd.h"
#include "auth/passwd_db.h"
#include "front/options/program_options_helper.h"
#include "handlers/mail_handlers.h"
#include "model/managers/domain_manager.h"
#include "model/names/name_checks.h"
#include "runtime/proc_info.h"
#include "runtime/uerr.h"
#include "storage/maildirpp_manager.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

// Postfix caches domain lookups in this daemon; an interrupt makes it start afresh.
constexpr const char* kTrivialRewrite = "/usr/lib/postfix/trivial-rewrite";

enum class Quota { None, Optional, Mandatory };

// Parses the options every domain command shares and returns the domain in its checked ASCII
// form.
std::string parseDomain(ProgramOptionsHelper& options, Quota quota, int argc, char* argv[])
{
    options.add()("domain-name", po::value<std::string>(), "domain name", true);
    if (quota != Quota::None)
        options.add()("disk-quota", po::value<std::int64_t>(), "disk quota", quota == Quota::Mandatory);
    options.parseOrExit(argc, argv);
    return quelt::names::checkedDomain(options.get<std::string>("domain-name"));
}

}  // namespace

int killproc(const std::string& path)
{
    const pid_t pid = findProcessByPath(path);
    if (pid < 1)
        return pid;
    return ::kill(pid, SIGINT);
}

int addDomain(int argc, char* argv[])
{
    ProgramOptionsHelper options("add a domain", "--add-domain --domain-name=<domain> [--disk-quota=quota]");
    const std::string domain = parseDomain(options, Quota::Optional, argc, argv);

    if (options.has("disk-quota"))
        DomainManager::createDomain(domain, options.get<std::int64_t>("disk-quota"), false);
    else
        DomainManager::createDomain(domain, false);
    killproc(kTrivialRewrite);
    return 0;
}

int removeDomain(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove a domain", "--remove-domain --domain-name=<domain>");
    const std::string domain = parseDomain(options, Quota::None, argc, argv);

    if (domain_auth_action(domain, mailAuthRemoveDomain, "remove auth record") == -1)
        return 1;
    DomainManager::removeDomain(domain, OnRemoval::Remove);
    if (mh_db_remove_all(nullptr, domain) < 0 || mh_db_remove_addr(nullptr, domain) != 0)
        uerr << "WARNING: unable to properly remove all mail handlers for " << domain << std::endl;
    return 0;
}

int enableDomain(int argc, char* argv[])
{
    ProgramOptionsHelper options("enable a domain", "--turn-on-domain --domain-name=<domain>");
    const std::string domain = parseDomain(options, Quota::None, argc, argv);

    if (domain_auth_action(domain, mailAuthEnableDomain, "enable auth records") == -1)
        return 1;
    DomainManager::enableDomain(domain);
    mh_db_switch_by_addr(nullptr, domain, 1);
    return 0;
}

int disableDomain(int argc, char* argv[])
{
    ProgramOptionsHelper options("disable a domain", "--turn-off-domain --domain-name=<domain>");
    const std::string domain = parseDomain(options, Quota::None, argc, argv);

    if (domain_auth_action(domain, mailAuthDisableDomain, "disable auth records") == -1)
        return 1;
    DomainManager::disableDomain(domain);
    mh_db_switch_by_addr(nullptr, domain, 0);
    return 0;
}

int setDomainDiskQuota(int argc, char* argv[])
{
    ProgramOptionsHelper options("set a domain disk quota",
                                 "--set-domain-disk-quota --domain-name=<domain> --disk-quota=quota");
    const std::string domain = parseDomain(options, Quota::Mandatory, argc, argv);

    MaildirPPManager::getInstance().setDomainQuota(domain, options.get<std::int64_t>("disk-quota"));
    return 0;
}

}  // namespace quelt::mail::postfix::mailrig_commands
