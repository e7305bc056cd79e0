// Runs a piece of code in a forked child and collects its exit status, stdout and stderr:
// for code that ends the process (usage texts, option errors) or writes to both streams.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "support/io.h"

struct ChildResult {
    int status = -1;  // exit status, or -1 when the child did not exit normally
    std::string out;
    std::string err;
};

// The whole content of a temporary file.
inline std::string slurp(std::FILE* file)
{
    return readFile("/proc/self/fd/" + std::to_string(::fileno(file)));
}

// `body`'s return value becomes the exit status unless it exits by itself.
inline ChildResult runInChild(const std::function<int()>& body)
{
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(::fileno(out), 1);
        ::dup2(::fileno(err), 2);
        std::exit(body());
    }
    int raw = 0;
    ::waitpid(pid, &raw, 0);
    ChildResult result;
    result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    result.out = slurp(out);
    result.err = slurp(err);
    std::fclose(out);
    std::fclose(err);
    return result;
}
