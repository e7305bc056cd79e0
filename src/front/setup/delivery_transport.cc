// The pipe transport of the delivery agent in master.cf.
#include "front/setup/delivery_transport.h"

#include <unistd.h>

#include "config/master/module_info.h"
#include "config/master/module_manager.h"
#include "storage/popuser.h"

namespace quelt::mail::postfix::setup {

namespace {

ModuleInfo transportEntry(const std::string& agent)
{
    ModuleInfo info;
    info.name = kDeliveryTransport;
    info.type = unix;
    info.priv = boost::indeterminate;
    info.unpriv = false;
    info.chroot = false;
    // D: a Delivered-To line, so that Postfix bounces a forwarding loop instead of running it;
    // R: the Return-Path the mailbox shows; X: the agent delivers finally. The null sender
    // reaches the agent as an empty argument. One recipient per run (see main.cf).
    info.command = {"pipe",
                    "flags=DRX",
                    std::string("user=") + kMailOwner,
                    "null_sender=",
                    "argv=" + agent,
                    "${sender}",
                    "${recipient}"};
    return info;
}

}  // namespace

std::string deliveryAgentPath()
{
    return MAILRIG_DELIVER_PATH;
}

std::string deliveryTransportLine(const std::string& agent)
{
    return formatModuleLine(transportEntry(agent));
}

std::vector<std::pair<std::string, std::string>> deliveryMainCfSettings()
{
    return {{"virtual_transport", kDeliveryTransport},
            {std::string(kDeliveryTransport) + "_destination_recipient_limit", "1"}};
}

void ensureDeliveryTransport(std::ostream& out, int& changes)
{
    const std::string agent = deliveryAgentPath();
    if (::access(agent.c_str(), X_OK) != 0)
        out << "warning: the delivery agent " << agent
            << " is not installed; Postfix keeps mailbox mail queued until it is\n";
    const ModuleInfo wanted = transportEntry(agent);
    ModuleManager& modules = ModuleManager::getInstance();
    modules.loadModules(false);
    if (modules.hasModule(wanted.name, wanted.type, true) &&
        modules.getModule(wanted.name, wanted.type, true).second == formatModuleLine(wanted))
        return;
    modules.addModule(wanted, true);
    modules.storeModules(false);
    out << "master.cf: set the delivery transport " << formatModuleLine(wanted) << '\n';
    ++changes;
}

}  // namespace quelt::mail::postfix::setup
