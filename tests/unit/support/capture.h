// Captures what the process writes to one descriptor (1 or 2) into a temporary file, and what a
// piece of code writes to standard error or throws.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "support/io.h"

class CaptureFd {
public:
    explicit CaptureFd(int fd) : fd_(fd)
    {
        std::fflush(nullptr);
        file_ = std::tmpfile();
        saved_ = ::dup(fd_);
        ::dup2(::fileno(file_), fd_);
    }
    ~CaptureFd()
    {
        restore();
        std::fclose(file_);
    }
    CaptureFd(const CaptureFd&) = delete;
    CaptureFd& operator=(const CaptureFd&) = delete;

    // What was written so far (stdio buffers are not flushed here on purpose).
    std::string text() const { return readFile("/proc/self/fd/" + std::to_string(::fileno(file_))); }
    void restore()
    {
        if (saved_ >= 0) {
            std::fflush(nullptr);
            ::dup2(saved_, fd_);
            ::close(saved_);
            saved_ = -1;
        }
    }

private:
    int fd_;
    int saved_ = -1;
    std::FILE* file_;
};

// What `body` writes to standard error, std::clog included.
template <class F>
std::string stderrOf(F&& body)
{
    CaptureFd err(2);
    body();
    std::clog.flush();
    err.restore();
    return err.text();
}

// The text of the E that `body` throws, or "(nothing thrown)"; other exceptions pass through.
template <class E, class F>
std::string thrownWhat(F&& body)
{
    try {
        body();
    } catch (const E& e) {
        return e.what();
    }
    return "(nothing thrown)";
}
