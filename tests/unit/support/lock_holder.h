// Another process holding a keyed lock while the code under test runs, to show that the code
// waits for it.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "support/io.h"

// The lock file of the keyed locks for `name`: /var/lock/files/<MD5 of name>.
inline std::string lockFileOf(const std::string& name)
{
    return "/var/lock/files/" + shellOutput("printf %s '" + name + "' | md5sum").substr(0, 32);
}

// A child locks `lockFile`, holds it for 300 ms and, just before letting go, runs `lastWhileHeld`,
// whose result becomes its exit status; meanwhile this process runs `change`. The child's status,
// or -1 when it did not get that far.
inline int whileLockHeld(const std::string& lockFile, const std::function<void()>& change,
                         const std::function<int()>& lastWhileHeld)
{
    int ready[2];
    if (::pipe(ready) != 0)
        return -1;
    const pid_t holder = ::fork();
    if (holder == 0) {
        const int fd = ::open(lockFile.c_str(), O_RDWR | O_CREAT, 0644);
        ::flock(fd, LOCK_EX);
        ::_exit(::write(ready[1], "x", 1) == 1 && ::usleep(300 * 1000) == 0 ? lastWhileHeld() : -1);
    }
    char c;
    const bool held = ::read(ready[0], &c, 1) == 1;
    ::close(ready[0]);
    ::close(ready[1]);
    if (held)
        change();
    int status = 0;
    ::waitpid(holder, &status, 0);
    return held && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
