// The service commands.
#include "front/commands/service_commands.h"

#include <iostream>

#include "auth/mysql_connection.h"
#include "config/master/module_manager.h"
#include "front/options/program_options_helper.h"
#include "runtime/report.h"
#include "services/manager/restart_daemon.h"
#include "services/manager/service_manager.h"

namespace quelt::mail::postfix::mailrig_commands {

namespace {

using Components = SelectedMailComponents;

constexpr const char* kCourier = "courier-imap";

unsigned parseComponents(const char* description, const char* command, int argc, char* argv[])
{
    ProgramOptionsHelper options(
        description, std::string(command) +
                         " [--mail-component={mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|milter|all}]"
                         " [--mail-component=...]");
    options.add()("mail-component", po::value<Components>()->composing(),
                  "mail component name (mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|milter|all) "
                  "(default all)");
    options.parseOrExit(argc, argv);
    return options.has("mail-component") ? options.get<Components>("mail-component").bits
                                         : unsigned(Components::all);
}

// The panel's switch for the submission service.
bool submissionAllowed()
{
    quelt::mysql::Connection panel(true);
    return quelt::mail::restore::getBoolMiscParamSafe("message_submission", panel, false);
}

// A known entry comes back with its own text from wherever it is; an unknown one is written.
void enableOrAdd(ModuleManager& modules, const ModuleInfo& entry)
{
    if (modules.hasModule(entry.name, entry.type, boost::indeterminate))
        modules.enableModule(entry.name, entry.type);
    else
        modules.addModule(entry, true);
}

ModuleManager& loadedModules()
{
    ModuleManager& modules = ModuleManager::getInstance();
    modules.loadModules(false);
    return modules;
}

// Switches the listeners among `bits` on or off in master.cf; true when master.cf was written.
bool masterCfStep(unsigned bits, bool on)
{
    if (!(bits & Components::listeners))
        return false;
    ModuleManager& modules = loadedModules();
    if (on) {
        if (bits & Components::smtp)
            enableOrAdd(modules, SmtpdModule());
        if (bits & Components::smtps)
            enableOrAdd(modules, SmtpdModule("smtps", true));
        if (bits & Components::submission) {
            if (submissionAllowed())
                enableOrAdd(modules, SubmissionModule());
            else
                ServiceManager::disableSubmission(modules);
        }
    } else {
        if (bits & Components::smtp)
            ServiceManager::disableSmtpd(modules);
        if (bits & Components::smtps)
            ServiceManager::disableSmtpsd(modules);
        // A submission service the panel has switched on is not stopped this way.
        if ((bits & Components::submission) && !submissionAllowed())
            ServiceManager::disableSubmission(modules);
    }
    return modules.storeModules(false);
}

// A running master reads master.cf again only when told; a stopped one reads it when it starts.
void reloadIfRunning(bool masterCfWritten)
{
    if (masterCfWritten && ServiceManager::statusServer(0) == 0)
        ServiceManager::reloadServer();
}

// An MTA step that fails, by its result or by an exception, makes the command fail; the other
// services are still handled.
int mtaStep(int (*step)())
{
    try {
        return step() != 0 ? 1 : 0;
    } catch (const std::exception& e) {
        quelt::reportException(e);
        return 1;
    }
}

struct Actions {
    int (*mta)();
    const char* courier;
    int (*milter)();
};

int runComponents(unsigned bits, bool listenersOn, const Actions& actions)
{
    const bool written = masterCfStep(bits, listenersOn);
    int status = 0;
    if (bits & Components::mta) {
        // start leaves a running Postfix alone, which must still learn of new entries.
        const bool reloadAfter = written && actions.mta == &ServiceManager::startServer &&
                                 ServiceManager::statusServer(0) == 0;
        status = mtaStep(actions.mta);
        if (reloadAfter)
            ServiceManager::reloadServer();
    } else {
        reloadIfRunning(written);
    }
    if ((bits & Components::courier) && restart_daemon(kCourier, actions.courier) != 0)
        status = 1;
    if ((bits & Components::milter) && actions.milter() != 0)
        status = 1;
    return status;
}

void printStatus(const char* component, int code)
{
    std::cout << component << ' ';
    print_status(code);
}

}  // namespace

int startService(int argc, char* argv[])
{
    const unsigned bits = parseComponents("start a service", "--start-service", argc, argv);
    return runComponents(bits, true, {&ServiceManager::startServer, "start", &ServiceManager::startMilter});
}

int restartService(int argc, char* argv[])
{
    const unsigned bits = parseComponents("restart a service", "--restart-service", argc, argv);
    return runComponents(bits, true,
                         {&ServiceManager::restartServer, "restart", &ServiceManager::restartMilter});
}

int stopService(int argc, char* argv[])
{
    const unsigned bits = parseComponents("stop a service", "--stop-service", argc, argv);
    return runComponents(bits, false, {&ServiceManager::stopServer, "stop", &ServiceManager::stopMilter});
}

int reloadService(int argc, char* argv[])
{
    const unsigned bits = parseComponents("reload a service", "--reload-service", argc, argv);
    int status = 0;
    if ((bits & Components::mta) && ServiceManager::reloadServer() != 0)
        status = 1;
    if ((bits & Components::courier) && restart_daemon(kCourier, "reload") != 0)
        status = 1;
    return status;
}

int statusService(int argc, char* argv[])
{
    const unsigned bits = parseComponents("get service status", "--status-service", argc, argv);
    if (bits & Components::mta)
        printStatus("mta", ServiceManager::statusServer(0));
    if (bits & Components::courier) {
        const int courier = restart_daemon(kCourier, "status");
        for (const auto& [name, bit] : {std::pair{"pop3", Components::pop3}, {"pop3s", Components::pop3s},
                                        {"imap", Components::imap}, {"imaps", Components::imaps}})
            if (bits & bit)
                printStatus(name, courier);
    }
    if (bits & Components::milter)
        printStatus("milter", ServiceManager::statusMilter());
    return 0;
}

int startSMTPD(int, char*[])
{
    ModuleManager& modules = loadedModules();
    enableOrAdd(modules, SmtpdModule());
    enableOrAdd(modules, SmtpdModule("smtps", true));
    reloadIfRunning(modules.storeModules(false));
    return 0;
}

int restartSMTPD(int argc, char* argv[])
{
    return startSMTPD(argc, argv);
}

int stopSMTPD(int, char*[])
{
    ModuleManager& modules = loadedModules();
    ServiceManager::disableSmtpd(modules);
    ServiceManager::disableSmtpsd(modules);
    reloadIfRunning(modules.storeModules(false));
    return 0;
}

int statusMTA(int, char*[])
{
    print_status(ServiceManager::statusServer(0));
    return 0;
}

int startMTA(int, char*[])
{
    return ServiceManager::startServer();
}

int stopMTA(int, char*[])
{
    return ServiceManager::stopServer();
}

int startIMAP(int, char*[])
{
    return restart_daemon(kCourier, "start");
}

int stopIMAP(int, char*[])
{
    return restart_daemon(kCourier, "stop");
}

int restartIMAP(int, char*[])
{
    return restart_daemon(kCourier, "restart");
}

int statusIMAP(int, char*[])
{
    print_status(restart_daemon(kCourier, "status"));
    return 0;
}

int startMilter(int, char*[])
{
    return ServiceManager::startMilter();
}

int stopMilter(int, char*[])
{
    return ServiceManager::stopMilter();
}

int restartMilter(int, char*[])
{
    return ServiceManager::restartMilter();
}

int statusMilter(int, char*[])
{
    print_status(ServiceManager::statusMilter());
    return 0;
}

// These two reload after every write of master.cf, running Postfix or not.
int enableSubmission(int, char*[])
{
    ModuleManager& modules = loadedModules();
    enableOrAdd(modules, SubmissionModule());
    if (modules.storeModules(false))
        ServiceManager::reloadServer();
    return 0;
}

int disableSubmission(int, char*[])
{
    ModuleManager& modules = loadedModules();
    modules.disableModule("submission", inet);
    if (modules.storeModules(false))
        ServiceManager::reloadServer();
    return 0;
}

}  // namespace quelt::mail::postfix::mailrig_commands
