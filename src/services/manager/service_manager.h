// Starting, stopping, reloading and querying the mail services: Postfix through its init
// script, the milter and Courier-IMAP through restart_daemon, and Postfix's SMTP, SMTPS and
// submission listeners through their master.cf entries.
#pragma once

#include <string>

#include "config/master/module_info.h"

namespace quelt::mail::postfix {

class ModuleManager;

// The entries the panel writes: "smtp inet n - n - - smtpd"; with another name and
// `wrapperMode`, "smtps inet n - n - - smtpd -o smtpd_tls_wrappermode=yes".
ModuleInfo SmtpdModule(const std::string& name = "smtp", bool wrapperMode = false);
// "submission inet n - n - - smtpd -o smtpd_enforce_tls=yes ..." (TLS and SASL required).
ModuleInfo SubmissionModule();

// Results are exit-status style: 0 success, anything else failure.
class ServiceManager {
public:
    // /etc/init.d/postfix <action> with LANG=C as its whole environment, standard input
    // /dev/null, its output on ours: its exit code, 255 when killed. Launch failures throw.
    static int rcCommand(const std::string& action);

    // Already running: 0 without running the script. Started: whether it runs within 5 s.
    static int startServer();
    // Not running: 0 without running the script.
    static int stopServer();
    static int restartServer();
    static int reloadServer();
    // 0 when the master of /var/spool/postfix/pid/master.pid has a "qmgr" child; checks once,
    // then once a second until `seconds` checks were made; 1 when it never had.
    static int statusServer(long seconds);

    static int startMilter();
    static int stopMilter();
    static int restartMilter();
    static int statusMilter();

    // Move the entry from master.cf to master.cf.disabled in the loaded `modules`; the caller
    // stores.
    static void disableSmtpd(ModuleManager& modules);
    static void disableSmtpsd(ModuleManager& modules);
    static void disableSubmission(ModuleManager& modules);
};

// "is running" for 0, "is stopped" otherwise, and a line end, on standard output.
void print_status(int code);

}  // namespace quelt::mail::postfix
