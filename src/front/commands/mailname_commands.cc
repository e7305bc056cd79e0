// The mailname and mailbox commands.
#include "front/commands/mailname_commands.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "auth/panel_passwd.h"
#include "auth/passwd_db.h"
#include "front/options/program_options_helper.h"
#include "handlers/mail_handlers.h"
#include "model/managers/mailname_manager.h"
#include "model/names/name_checks.h"
#include "runtime/zvt_conf.h"
#include "storage/maildirpp_manager.h"
#include "storage/mbox_quota.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

constexpr const char* kPasswordHelp =
    "\n        The noncrypted password is transferred in the environment variable ZVT_PASSWORD,"
    "\n        or crypted password is transferred in the environment variable ZVT_CRYPTED_PASSWORD";

// Password flags of the password database.
constexpr int kCryptedFlag = 1;
constexpr int kDomainDisabledFlag = 4;

// The checked domain and mailname of a command.
struct Mailname {
    std::string domain;
    std::string name;
    std::string address() const { return name + "@" + domain; }
};

void declareDomainAndMailname(ProgramOptionsHelper& options)
{
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "mailname", po::value<std::string>(), "mailname", true);
}

// Parses the options and checks the names: the domain's ASCII form first, then the mailname.
Mailname parseMailname(ProgramOptionsHelper& options, int argc, char* argv[])
{
    options.parseOrExit(argc, argv);
    Mailname m;
    m.domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    m.name = quelt::names::checkedMailname(options.get<std::string>("mailname"));
    return m;
}

// The password the panel handed over, taken before any store runs a program: neither variable
// outlives this read, so no child process inherits a password.
struct EnvPassword {
    std::optional<std::string> value;
    bool crypted = false;
};

EnvPassword takeEnvPassword()
{
    EnvPassword taken;
    std::string password;
    int crypted = 0;
    if (get_env_password(password, crypted) == 0) {
        taken.value = password;
        taken.crypted = crypted != 0;
    }
    ::unsetenv("ZVT_PASSWORD");
    ::unsetenv("ZVT_CRYPTED_PASSWORD");
    return taken;
}

int passwordFlags(const EnvPassword& password, const ProgramOptionsHelper& options)
{
    return (password.crypted ? kCryptedFlag : 0) | (options.has("mail-domain-disabled") ? kDomainDisabledFlag : 0);
}

}  // namespace

int addMailname(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "add a mailname", "--add-mailname --domain-name=<domain_name> --mailname=<mail_name> [--disk-quota=<quota>]");
    declareDomainAndMailname(options);
    options.add()("disk-quota", po::value<std::int64_t>(), "disk quota");
    const Mailname m = parseMailname(options, argc, argv);

    if (options.has("disk-quota"))
        MailnameManager::createMailname(m.domain, m.name, options.get<std::int64_t>("disk-quota"));
    else
        MailnameManager::createMailname(m.domain, m.name);
    return 0;
}

int removeMailname(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove a mailname",
                                 "--remove-mailname --domain-name=<domain_name> --mailname=<mail_name>");
    declareDomainAndMailname(options);
    const Mailname m = parseMailname(options, argc, argv);

    if (rm_mails_from_domains(m.name, m.domain) == -1)
        return 1;
    MailnameManager::removeMailname(m.domain, m.name, OnRemoval::Remove);
    return mh_db_remove_addr(nullptr, m.address());
}

int renameMailname(int argc, char* argv[])
{
    ProgramOptionsHelper options("rename a mailname",
                                 "--rename-mailname --domain-name=<domain_name> --old-mailname=<old_mail_name> "
                                 "--new-mailname=<new_mail_name> [--mail-domain-disabled|-D]");
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "old-mailname", po::value<std::string>(), "old mailname", true)(
        "new-mailname", po::value<std::string>(), "new mailname", true)(
        "mail-domain-disabled,D", "the domain is disabled (currently unused)");
    options.parseOrExit(argc, argv);
    const std::string domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    const std::string oldName = quelt::names::checkedMailname(options.get<std::string>("old-mailname"));
    const std::string newName = quelt::names::checkedMailname(options.get<std::string>("new-mailname"));
    const EnvPassword password = takeEnvPassword();

    MailnameManager::renameMailname(domain, oldName, newName);
    std::vector<std::string> domainAliases;
    append_domainaliases_by_domain(domainAliases, domain);
    for (const auto& alias : domainAliases)
        MailnameManager::renameMailnameOnDomainAlias(alias, oldName, newName);

    // The stored password follows the name; the value handed over only says that one exists.
    if (password.value && !password.value->empty()) {
        if (const int result = mailAuthRename(oldName, newName, domain); result != 0)
            return result;
    } else if (rm_mname_from_domains(oldName, domain) == -1) {
        return 1;
    }
    const int cloned = mh_db_clone(nullptr, oldName, domain, newName, domain);
    return cloned | mh_db_remove_addr(nullptr, oldName + "@" + domain);
}

int addMailbox(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "add mailname's mailbox",
        std::string("--add-mailbox --domain-name=<domain_name> --mailname=<mail_name> [--mail-domain-disabled|-D]") +
            kPasswordHelp);
    declareDomainAndMailname(options);
    options.add()("mail-domain-disabled,D", "the domain is disabled (currently unused)");
    const Mailname m = parseMailname(options, argc, argv);
    const EnvPassword password = takeEnvPassword();

    MailnameManager::enableDelivery(m.domain, m.name);
    return set_passwd_for_domains(m.name, m.domain, password.value, passwordFlags(password, options)) == -1 ? 1 : 0;
}

int removeMailbox(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove mailname's mailbox",
                                 "--remove-mailbox --domain-name=<domain_name> --mailname=<mail_name>");
    declareDomainAndMailname(options);
    const Mailname m = parseMailname(options, argc, argv);

    MailnameManager::disableDelivery(m.domain, m.name);
    return rm_mails_from_domains(m.name, m.domain) == -1 ? 1 : 0;
}

int setPassword(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "set mailname's password",
        std::string("--set-password --domain-name=<domain_name> --mailname=<mail_name> [--mail-domain-disabled|-D]") +
            kPasswordHelp);
    declareDomainAndMailname(options);
    options.add()("mail-domain-disabled,D", "the domain is disabled (currently unused)");
    const Mailname m = parseMailname(options, argc, argv);
    const EnvPassword password = takeEnvPassword();

    // No password handed over removes the records.
    return set_mass_postbox_passwd(m.name, m.domain, password.value, passwordFlags(password, options)) == -1 ? 1 : 0;
}

int setMailboxDiskQuota(int argc, char* argv[])
{
    ProgramOptionsHelper options(
        "set mailbox disk quota",
        "--set-mailbox-disk-quota --domain-name=<domain_name> --mailname=<mail_name> --disk-quota=<quota>");
    declareDomainAndMailname(options);
    options.add()("disk-quota", po::value<std::int64_t>(), "disk quota", true);
    const Mailname m = parseMailname(options, argc, argv);

    MaildirPPManager::getInstance().setMailboxQuota(m.domain, m.name, options.get<std::int64_t>("disk-quota"));
    return 0;
}

int getMailboxSize(int argc, char* argv[])
{
    ProgramOptionsHelper options("get mailbox size",
                                 "--get-mailbox-size [--in-blocks] --domain-name=<domain_name> --mailname=<mail_name>");
    options.add()("in-blocks", "count result in blocks rather than bytes");
    declareDomainAndMailname(options);
    const Mailname m = parseMailname(options, argc, argv);

    const long long size = get_mbox_size(m.name, m.domain, options.has("in-blocks"));
    if (size < 0)
        return 1;
    std::cout << size;  // the panel reads the number as it is: no line end
    return 0;
}

}  // namespace quelt::mail::postfix::mailrig_commands
