// The generic init-script runner.
#include "services/manager/restart_daemon.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <vector>

#include "runtime/errors.h"
#include "runtime/fd_owner.h"
#include "runtime/log.h"
#include "runtime/zvt_conf.h"
#include "services/process/process_launch.h"

namespace {

// messlog2 appends the pending errno; messages that carry their own error text must not.
template <class... Args>
void report(const char* format, Args... args)
{
    errno = 0;
    messlog2(0, 0, format, args...);
}

std::string folderOf(const std::string& path)
{
    std::vector<char> copy(path.begin(), path.end());
    copy.push_back('\0');
    return ::dirname(copy.data());
}

}  // namespace

int restart_daemon(const std::string& service, const std::string& action)
{
    if (zvtConfGet("NO_RESTART_DAEMON"))
        return 0;
    if (service.empty() || (service != "pc-remote" && service != "courier-imap")) {
        // The panel's web-server and servlet-container services are not the mail system's.
        report("Unknown service\n");
        return -1;
    }
    return rcd_ctrl(service, action);
}

int rcd_ctrl(const std::string& service, const std::string& action)
{
    for (const char* format : {"/etc/init.d/%s", "/etc/init.d/%s.sh", "/etc/init.d%s"}) {
        std::vector<char> path(std::strlen(format) + service.size() + 1);
        std::snprintf(path.data(), path.size(), format, service.c_str());
        struct stat st;
        if (::stat(path.data(), &st) == 0)
            return rc_script(path.data(), action);
    }
    report("Unable to find start/stop script for '%s'\n", service.c_str());
    return -1;
}

int rc_script(const std::string& path, const std::string& action)
{
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        const int error = errno;
        errno = 0;
        if (error == ENOENT)
            messlog2(1, 0, "No such file '%s': %s", path.c_str(), std::strerror(error));
        messlog2(1, 0, "Error during access to '%s': %s", path.c_str(), std::strerror(error));
    }
    if (!S_ISREG(st.st_mode)) {
        errno = 0;
        messlog2(1, 0, "Not a regular file: '%s'", path.c_str());
    }

    const std::string logPath = zvtConfGetDefaultByIndex(PRODUCT_ROOT_D_IDX) + "/tmp/rc_actions.log";
    quelt::FdOwner log(::open(logPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    const int output = log.valid() ? log.get() : quelt::process::DevNull;

    std::vector<char> arg0(path.begin(), path.end()), arg1(action.begin(), action.end());
    arg0.push_back('\0');
    arg1.push_back('\0');
    char* argv[] = {arg0.data(), arg1.data(), nullptr};
    int status = 0;
    try {
        quelt::process::ProcessLaunch child(argv, path, folderOf(path), nullptr, true, true, true, {},
                                            quelt::process::DevNull, output,
                                            quelt::process::SameAsStdout);
        try {
            child.waitExec();
        } catch (const quelt::SystemError& e) {
            // The child has ended with a failure status, reported below once it is collected.
            if (e.message() == "cwd chdir")
                report("Unable to change directory to %s: %s\n", folderOf(path).c_str(),
                       std::strerror(e.code()));
        } catch (const std::exception&) {
        }
        status = child.waitExit();
    } catch (const quelt::SystemError& e) {
        report("fork: %s for %s: %s\n", std::strerror(e.code()), action.c_str(), path.c_str());
        return -1;
    } catch (const std::exception& e) {
        report("Error occured during %s service %s: %s\n", action.c_str(), path.c_str(), e.what());
        return -1;
    }

    if (WIFSIGNALED(status)) {
        report("Unable to %s service %s: daemon killed by signal %i\n", action.c_str(), path.c_str(),
               WTERMSIG(status));
        return -1;
    }
    if (WEXITSTATUS(status) == 0)
        return 0;
    if (action != "status")
        report("Service %s failed to %s\n", path.c_str(), action.c_str());
    return -1;
}
