// The panel's generic init-script runner, shared with its other utilities: the milter and
// Courier-IMAP are started, stopped and queried through their /etc/init.d scripts.
#pragma once

#include <string>

// Runs the init script of `service` ("pc-remote" or "courier-imap") with `action`: 0 on
// success, -1 on failure (reported through messlog2, except a failed "status", which is just
// -1). Does nothing and gives 0 when the panel configuration sets NO_RESTART_DAEMON. Never
// throws; a script path that is not a regular file ends the process with status 1.
int restart_daemon(const std::string& service, const std::string& action);

// Finds the script of `service` under /etc/init.d and runs it through rc_script; -1 with
// "Unable to find start/stop script for '<service>'" when there is none.
int rcd_ctrl(const std::string& service, const std::string& action);

// Runs `path action` in its own session from the script's folder, standard input /dev/null,
// standard output and error appended to PRODUCT_ROOT_D/tmp/rc_actions.log; waits for it.
int rc_script(const std::string& path, const std::string& action);
