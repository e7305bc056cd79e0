// Sender transports: a service per address pair in master.cf, a record per domain in
// sdd_transport_maps, and a Postfix restart to make the change count.
#include "front/commands/transport_commands.h"

#include <string>

#include "config/master/module_manager.h"
#include "front/options/program_options_helper.h"
#include "model/managers/sender_transports.h"
#include "model/names/name_checks.h"
#include "model/names/network_check.h"
#include "services/manager/service_manager.h"
#include "tables/database_helper.h"
#include "tables/table_names.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

// The transport commands' help has always led with the usage line, the description following
// "Usage: ", and heads its option table "Allowed options to <usage line>".
ProgramOptionsHelper transportOptions(const std::string& description, const std::string& usageLine)
{
    return ProgramOptionsHelper(usageLine, description);
}

std::string optionalValue(const ProgramOptionsHelper& options, const char* name)
{
    return options.has(name) ? options.get<std::string>(name) : std::string();
}

}  // namespace

int addDomainToIpTransport(int argc, char* argv[])
{
    ProgramOptionsHelper options = transportOptions(
        "add sender transport for domain",
        "--add-domain-to-sender-transport --domain-name=<domain> [--ip4-addr=<ip_address>] [--ip6-addr=<ip_address>]");
    options.add()("domain-name", po::value<std::string>(), "domain name", true)(
        "ip4-addr", po::value<std::string>(), "ipv4 address")("ip6-addr", po::value<std::string>(), "ipv6 address");
    options.parseOrExit(argc, argv);
    std::string ipv4 = optionalValue(options, "ip4-addr");
    std::string ipv6 = optionalValue(options, "ip6-addr");
    if (ipv4.empty() && ipv6.empty())
        throw MissingMandatoryOption("mandatory option \"--ip4-addr or ip6-addr\" is not specified");
    const std::string domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));
    // The texts name a master.cf service and go into its command line: only addresses will do.
    if (!ipv4.empty())
        ipv4 = quelt::names::checkedIPv4(ipv4);
    if (!ipv6.empty())
        ipv6 = quelt::names::checkedIPv6(ipv6);

    ModuleManager& modules = ModuleManager::getInstance();
    modules.loadModules(false);
    modules.addModule(SenderTransportManager::SenderTransport(ipv4, ipv6), true);
    modules.storeModules(false);
    SenderTransportManager::addDomainToTransport(domain, ipv4, ipv6);
    ServiceManager::restartServer();
    return 0;
}

int removeDomainFromIpTransport(int argc, char* argv[])
{
    ProgramOptionsHelper options = transportOptions("remove domain from sender transports",
                                                    "--remove-domain-from-sender-transport --domain-name=<domain>");
    options.add()("domain-name", po::value<std::string>(), "domain name", true);
    options.parseOrExit(argc, argv);
    const std::string domain = quelt::names::checkedDomain(options.get<std::string>("domain-name"));

    // The service stays: other domains may still send through it.
    DatabaseHelper::removeRecord(tables::kSenderTransports, "@" + domain);
    ServiceManager::restartServer();
    return 0;
}

int removeIPTransport(int argc, char* argv[])
{
    ProgramOptionsHelper options =
        transportOptions("remove sender transport", "--remove-sender-transport --ip-addr=<ip_address>");
    options.add()("ip-addr", po::value<std::string>(), "ip address");
    options.parseOrExit(argc, argv);
    // Reading an absent --ip-addr fails here, before anything is changed.
    const std::string& ip = options.get<std::string>("ip-addr");
    quelt::names::checkAddress(ip);

    // The records that pointed at the removed services stay.
    SenderTransportManager::removeTransport(ip);
    ServiceManager::restartServer();
    return 0;
}

}  // namespace quelt::mail::postfix::mailrig_commands
