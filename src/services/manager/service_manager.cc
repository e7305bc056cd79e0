// Service control of Postfix, the milter and Courier-IMAP.
#include "services/manager/service_manager.h"

#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "config/master/module_manager.h"
#include "runtime/proc_info.h"
#include "services/manager/restart_daemon.h"
#include "services/process/process_launch.h"

namespace quelt::mail::postfix {

namespace {

constexpr const char* kPostfixScript = "/etc/init.d/postfix";
constexpr const char* kMasterPidFile = "/var/spool/postfix/pid/master.pid";
constexpr const char* kQueueManager = "qmgr";
constexpr const char* kMilter = "pc-remote";
constexpr long kStartWait = 5;

pid_t getMasterPid()
{
    std::ifstream in(kMasterPidFile);
    long pid = -1;
    if (!(in >> pid))
        return -1;
    return static_cast<pid_t>(pid);
}

// A stale pid file may name any process, or one the kernel has given to something else; only
// a master with its queue manager is a running Postfix.
bool hasQueueManager(pid_t master)
{
    return for_each_process([master](const ProcessEntry& process) {
               return process.ppid == master && process.name == kQueueManager ? 0 : 1;
           }) == 0;
}

}  // namespace

ModuleInfo SmtpdModule(const std::string& name, bool wrapperMode)
{
    ModuleInfo info;
    info.name = name;
    info.type = inet;
    info.priv = false;
    info.unpriv = boost::indeterminate;
    info.chroot = false;
    info.command = {"smtpd"};
    if (wrapperMode)
        info.command.push_back("-o smtpd_tls_wrappermode=yes");
    return info;
}

ModuleInfo SubmissionModule()
{
    ModuleInfo info = SmtpdModule("submission");
    info.command = {"smtpd",
                    "-o smtpd_enforce_tls=yes",
                    "-o smtpd_tls_security_level=encrypt",
                    "-o smtpd_sasl_auth_enable=yes",
                    "-o smtpd_client_restrictions=permit_sasl_authenticated,reject",
                    "-o smtpd_sender_restrictions="};
    return info;
}

int ServiceManager::rcCommand(const std::string& action)
{
    std::string arg0 = kPostfixScript, arg1 = action, env0 = "LANG=C";
    char* argv[] = {arg0.data(), arg1.data(), nullptr};
    char* envp[] = {env0.data(), nullptr};
    // The script writes on our standard output: what we printed so far comes first.
    std::cout.flush();
    process::ProcessLaunch script(argv, kPostfixScript, "", envp, false, false, false, {},
                                  process::DevNull, process::Inherit, process::SameAsStdout);
    script.waitExec();
    const int status = script.waitExit();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

int ServiceManager::startServer()
{
    if (statusServer(0) == 0)
        return 0;
    if (const int rc = rcCommand("start"))
        return rc;
    return statusServer(kStartWait);
}

int ServiceManager::stopServer()
{
    if (statusServer(0) != 0)
        return 0;
    return rcCommand("stop");
}

int ServiceManager::restartServer()
{
    if (const int rc = rcCommand("restart"))
        return rc;
    return statusServer(kStartWait);
}

int ServiceManager::reloadServer()
{
    return rcCommand("reload");
}

int ServiceManager::statusServer(long seconds)
{
    for (long checks = 1;; ++checks) {
        const pid_t master = getMasterPid();
        if (master != -1 && hasQueueManager(master))
            return 0;
        if (checks >= seconds)
            return 1;
        ::sleep(1);
    }
}

int ServiceManager::startMilter()
{
    return restart_daemon(kMilter, "start");
}

int ServiceManager::stopMilter()
{
    return restart_daemon(kMilter, "stop");
}

int ServiceManager::restartMilter()
{
    return restart_daemon(kMilter, "restart");
}

int ServiceManager::statusMilter()
{
    return restart_daemon(kMilter, "status");
}

void ServiceManager::disableSmtpd(ModuleManager& modules)
{
    const ModuleInfo entry = SmtpdModule();
    modules.disableModule(entry.name, entry.type);
}

void ServiceManager::disableSmtpsd(ModuleManager& modules)
{
    const ModuleInfo entry = SmtpdModule("smtps", true);
    modules.disableModule(entry.name, entry.type);
}

void ServiceManager::disableSubmission(ModuleManager& modules)
{
    const ModuleInfo entry = SubmissionModule();
    modules.disableModule(entry.name, entry.type);
}

void print_status(int code)
{
    std::cout << (code != 0 ? "is stopped" : "is running") << std::endl;
}

}  // namespace quelt::mail::postfix
