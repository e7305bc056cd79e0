// The server-wide mail settings commands and the feature report.
#include "front/commands/settings_commands.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <stdexcept>

#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast.hpp>

#include "config/files/courier_env.h"
#include "config/files/pop_auth.h"
#include "config/files/spf.h"
#include "config/maincf/main_cf_manager.h"
#include "config/settings/settings_manager.h"
#include "front/options/program_options_helper.h"
#include "model/names/name_checks.h"
#include "model/names/network_check.h"
#include "runtime/errors.h"
#include "runtime/proc_info.h"
#include "services/manager/service_manager.h"
#include "services/process/exec_cmd.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

constexpr const char* kShortNamesUnsupported = "short account-format is not supported for Postfix";

// The value of an option that must be read as is, on one line, by another program.
std::optional<std::string> oneLine(const ProgramOptionsHelper& options, const char* name)
{
    if (!options.has(name))
        return std::nullopt;
    const std::string& value = options.get<std::string>(name);
    if (value.find_first_of("\r\n") != std::string::npos)
        throw std::invalid_argument("invalid " + std::string(name) + " value '" + quelt::names::printable(value) + "'");
    return value;
}

// Parses a command that takes no options but help.
void parseNone(const char* description, const char* usage, int argc, char* argv[])
{
    ProgramOptionsHelper options(description, usage);
    options.parseOrExit(argc, argv);
}

// Sender-dependent transports need Postfix newer than 2.7; the version pieces compare as text.
bool senderDependentTransports()
{
    ExecCmd postconf("/usr/sbin/postconf");
    postconf << "-d" << "-h" << "mail_version";
    postconf.exec();
    std::vector<std::string> pieces;
    boost::algorithm::split(pieces, postconf.getStdout(), [](char c) { return c == '.'; });
    const std::vector<std::string> oldest{"2", "7"};
    return std::lexicographical_compare(oldest.begin(), oldest.end(), pieces.begin(), pieces.end());
}

}  // namespace

int setMailParams(int argc, char* argv[])
{
    ProgramOptionsHelper options("set mail server parameters",
                                 "--set-mail-params [--relayclient] [--smtpauth] [--popauth] "
                                 "[--poplock-time=<time_in_seconds>] [--shortnames]");
    options.add()("relayclient", "whether to enable mail relaying (disabled by default)")(
        "smtpauth", "whether to enable SMTP authorization (disabled by default)")(
        "popauth", "whether to enable POP3 before SMTP authorization (disabled by default)")(
        "poplock-time", po::value<std::int16_t>(), "POP3 authorization validity time")(
        "shortnames", "whether to enable short names (legacy, not supported)");
    options.parseOrExit(argc, argv);

    if (options.has("shortnames"))
        throw NotSupportedError(kShortNamesUnsupported);
    const bool relay = options.has("relayclient");
    const bool smtpAuth = options.has("smtpauth");
    const bool popAuth = options.has("popauth");
    const std::int16_t lockTime = popAuth && options.has("poplock-time") ? options.get<std::int16_t>("poplock-time") : 0;

    if (set_poplockdb_clean_period(popAuth ? lockTime : 0) != 0)
        return 1;
    if (set_courier_params(relay, popAuth, lockTime, 0) != 0)
        return 1;
    if ((popAuth ? enablePopAuth() : disablePopAuth()) != 0)
        return 1;
    if (relay)
        SettingsManager::setOpenRelay();
    else
        SettingsManager::setAuthRelay(smtpAuth, popAuth);
    // The milter and Postfix pick the settings up; their own failures do not undo them.
    ServiceManager::restartMilter();
    ServiceManager::reloadServer();
    return 0;
}

int setMaxLetterSize(int argc, char* argv[])
{
    ProgramOptionsHelper options("set maximal letter size", "--set-max-letter-size --size=<size_in_bytes>");
    options.add()("size", po::value<std::int64_t>(), "letter size", true);
    options.parseOrExit(argc, argv);

    std::int64_t size = options.get<std::int64_t>("size");
    if (size < 0)
        throw std::invalid_argument("invalid size '" + std::to_string(size) + "'");
    if (size == 0)
        size = SettingsManager::getMailboxSizeLimit();
    MainCfManager::getInstance().replaceStringValue("message_size_limit", std::to_string(size));
    ServiceManager::reloadServer();
    return 0;
}

int getMaxLetterSize(int argc, char* argv[])
{
    parseNone("get maximal letter size", "--get-max-letter-size", argc, argv);
    const std::string value = MainCfManager::getInstance().getStringValue("message_size_limit", false);
    std::cout << boost::lexical_cast<long long>(value) << std::endl;
    return 0;
}

int getMailboxLimit(int argc, char* argv[])
{
    parseNone("get mailbox size limit", "--get-mailbox-size-limit", argc, argv);
    std::cout << SettingsManager::getMailboxSizeLimit() << std::endl;
    return 0;
}

int addWhiteList(int argc, char* argv[])
{
    ProgramOptionsHelper options("add a network to the white-list",
                                 "--add-whitelist --ip-address=<ip_address> --netmask=<netmask>");
    options.add()("ip-address", po::value<std::string>(), "IPv4 address", true)(
        "netmask", po::value<IPMask>(), "netmask", true);
    options.parseOrExit(argc, argv);

    const std::string& address = options.get<std::string>("ip-address");
    const std::uint16_t prefix = options.get<IPMask>("netmask").value;
    quelt::names::checkNetwork(address, prefix);
    SettingsManager::addWhiteNetwork(address, prefix);
    return 0;
}

int removeWhiteList(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove a network from the white-list",
                                 "--remove-whitelist --ip-address=<ip_address> --netmask=<netmask>");
    options.add()("ip-address", po::value<std::string>(), "IPv4 address", true)(
        "netmask", po::value<std::string>(), "netmask", true);
    options.parseOrExit(argc, argv);

    const std::string& address = options.get<std::string>("ip-address");
    quelt::names::checkAddress(address);
    SettingsManager::removeWhiteNetwork(address);
    return 0;
}

int addBadMailFrom(int argc, char* argv[])
{
    ProgramOptionsHelper options("add a sender domain to the blacklist", "--add-badmailfrom --domain-name=<domain_name>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true);
    options.parseOrExit(argc, argv);

    SettingsManager::addBlackDomain(quelt::names::checkedDomain(options.get<std::string>("domain-name")));
    return 0;
}

int removeBadMailFrom(int argc, char* argv[])
{
    ProgramOptionsHelper options("remove a sender domain from the blacklist",
                                 "--remove-badmailfrom --domain-name=<domain_name>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true);
    options.parseOrExit(argc, argv);

    SettingsManager::removeBlackDomain(quelt::names::checkedDomain(options.get<std::string>("domain-name")));
    return 0;
}

int setMapsProtection(int argc, char* argv[])
{
    ProgramOptionsHelper options("set MAPS protection", "--set-maps-protection [--maps-zones=<zone1,zone2,...,zoneN>]");
    options.add()("maps-zones", po::value<std::string>(), "MAPS zones");
    options.parseOrExit(argc, argv);

    std::vector<std::string> zones;
    if (options.has("maps-zones")) {
        std::vector<std::string> pieces;
        boost::algorithm::split(pieces, options.get<std::string>("maps-zones"),
                                [](char c) { return c == ' ' || c == '\t' || c == ','; });
        for (const std::string& piece : pieces)
            if (!piece.empty())
                zones.push_back(quelt::names::checkedDomain(piece));
    }
    SettingsManager::setRBLHosts(zones.begin(), zones.end());
    ServiceManager::reloadServer();
    return 0;
}

int setAccountsFormat(int argc, char* argv[])
{
    ProgramOptionsHelper options("set the POP3/IMAP accounts format",
                                 "--set-accounts-format --account-format=(\"compound\" | \"both\")");
    options.add()("account-format", po::value<ShortnameFormat>(),
                  "Accounts format (currently only compound supported)", true);
    options.parseOrExit(argc, argv);

    if (options.get<ShortnameFormat>("account-format") == ShortnameFormat::Both)
        throw NotSupportedError(kShortNamesUnsupported);
    return set_courier_shortnames_params(0);
}

int updateSPF(int argc, char* argv[])
{
    ProgramOptionsHelper options("update SPF settings",
                                 "--update-spf [--spf-behavior=spf_behavior] [--spf-rules=spf_rules] "
                                 "[--spf-guess=spf_guess] [--spf-exp=<spf_exp>]");
    options.add()("spf-behavior", po::value<std::string>(), "SPF behavior")(
        "spf-rules", po::value<std::string>(), "SPF rules")("spf-guess", po::value<std::string>(), "SPF guess")(
        "spf-exp", po::value<std::string>(), "SPF exp");
    options.parseOrExit(argc, argv);

    // Every value is checked before the first file is written.
    const std::optional<std::string> behavior = oneLine(options, "spf-behavior");
    const std::optional<std::string> rules = oneLine(options, "spf-rules");
    const std::optional<std::string> guess = oneLine(options, "spf-guess");
    const std::optional<std::string> exp = oneLine(options, "spf-exp");
    return update_spf(behavior, rules, guess, exp) != 0 ? 1 : 0;
}

int printFeatures(int argc, char* argv[])
{
    parseNone("print the supported features as PHP code", "--features", argc, argv);

    static const char* const kSupported[] = {
        "MailName_SetName", "MailName_SetDomain", "MailName_Quota", "MailName_SetQuota", "MailName_Size",
        "MailName_Password", "MailName_SetPassword", "MailName_Postbox", "MailName_SetPostbox",
        "MailName_Forward", "MailName_MultiForward", "MailName_SetForward", "MailName_AutoResponder",
        "MailName_SetAutoResponder", "MailName_Aliases",
        "Domain_SetName", "Domain_Enable", "Domain_SetEnable", "Domain_Quota", "Domain_SetQuota",
        "Domain_Bounce", "Domain_SetBounce", "Domain_Catch", "Domain_SetCatch", "Domain_Reject",
        "Common_BadMail", "Common_MaxLetterSize", "Common_SetMaxLetterSize",
        "Relay", "Relay_Set", "Relay_Open", "Relay_Closed", "Relay_AuthorizationIsRequired",
        "Relay_AuthType_None", "Relay_AuthType_POP3_SMTP"};
    static const char* const kRelayTypes[] = {
        "Relay_AuthType_SMTP", "Relay_POP3_LockTime", "Relay_WhiteList", "Relay_WhiteList_Mask",
        "Relay_BlackList", "Relay_WhiteList_BlackList", "MapsProtection", "SetMapsProtection"};
    static const char* const kAccounts[] = {"AccountsFormat_Set", "Mail_Send", "Mail_Attachments", "Mail_Forward"};

    // The one Postfix question comes first, so that a failing postconf prints no half report.
    const bool sdd = senderDependentTransports();
    for (const char* name : kSupported)
        print_feature(name, "true");
    print_feature("Relay_AuthType_POP3", "false");
    for (const char* name : kRelayTypes)
        print_feature(name, "true");
    print_feature("AccountsFormat_Simple", "false");
    print_feature("AccountsFormat_Compound", "true");
    print_feature("AccountsFormat_Both", "false");
    for (const char* name : kAccounts)
        print_feature(name, "true");
    print_feature("SMTP_Server", "Postfix");
    print_feature("IMAP_POP3_Server", "Courier-IMAP");
    print_feature("SMTP_Server_package", "postfix");
    print_feature("IMAP_POP3_Server_package", "courier-imap");
    print_feature("Message_Submission", "true");
    print_feature("Message_Submission_all_IP", "true");
    print_feature("Message_Submission_Dedicated_IP", "false");
    print_feature("SDD_Transport_Maps", sdd ? "true" : "false");
    return 0;
}

}  // namespace quelt::mail::postfix::mailrig_commands
