// Running one external program with its three standard streams served from memory, and the
// small set-up helpers of the child (descriptor moves, user switch).
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

// The argument vector of a program to run, argument 0 (the program name) first. The array
// handed to exec gets its NULL end when the child is started.
using ArgList = std::vector<std::string>;

// Environment entries set in a launched program, by name.
using EnvMap = std::map<std::string, std::string>;

namespace quelt {

// A program and its arguments; argument 0 is the program path.
class CmdLine {
public:
    explicit CmdLine(const std::string& path) : path_(path), args_{path} {}
    virtual ~CmdLine() = default;

    const std::string& path() const { return path_; }
    const ArgList& args() const { return args_; }

protected:
    std::string path_;
    ArgList args_;
};

}  // namespace quelt

// Runs `path` (looked up in PATH when it has no "/") with `args`, as `user` when that names a
// non-root account, with `env` added to the environment. Feeds `in` to its standard input,
// appends its standard output and error to `out` and `err`, and waits for it. Returns its exit
// code (0-255), or -1 when it was killed by a signal or could not be waited for (errno tells
// why; ECHILD when something else already collected it). A child that cannot start exits 1
// with the reason in `err`. Pipe set-up failures end the process (status 1); select and I/O
// failures throw SystemError.
int forkExecvGetInOutErrSuidEnv(const std::string& in, std::string& out, std::string& err,
                                const std::string& path, const ArgList& args,
                                const std::string& user, const EnvMap& env);

// Forks; the child puts `in`, `out`, `err` on 0, 1, 2 (-1 means /dev/null), closes every other
// descriptor, switches user, sets `env` and executes. Returns the child's pid in the parent;
// throws SystemError "forkExecvPipes: fork() failed". Never returns in the child.
pid_t forkExecvPipes(int in, int out, int err, const std::string& path, const ArgList& args,
                     const std::string& user, const EnvMap& env);

// Appends everything readable from the non-blocking `fd` to `out`: 0 at end of file, 1 when
// it would block. Throws SystemError "readToString failed".
int readToString(int fd, std::string& out);

// Writes as much of `text` as `fd` takes and erases that from its front (the rest stays when
// the descriptor would block). Throws SystemError "writeToString failed".
void writeFromString(int fd, std::string& text);

// Puts `fd` on `target` and closes `fd`; -1 opens /dev/null read-write; equal descriptors are
// left alone. Throws SystemError "dup2Custom failed".
void dup2Custom(int fd, int target);

// Looks `user` up in the password database: 0 with its uid and gid, -1 (errno set, ENOENT
// when there is no such user) otherwise.
int quelt_ugid(const std::string& user, uid_t* uid, gid_t* gid);

// Switches the process to `user` (its groups, gid and uid): 0, or -1 with errno.
int p_setuid(const std::string& user);
