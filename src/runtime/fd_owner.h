// Owners of file descriptors: one descriptor (FdOwner), the two ends of a pipe (PipeOwner) and a
// stdio stream (StdioFile), and the plain descriptor calls every layer repeats (whole writes, flags, closing a range).
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>

namespace quelt {

struct StdioClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
// Owns a stdio stream opened with fopen; fclose ends it.
using StdioFile = std::unique_ptr<std::FILE, StdioClose>;

// Holds a descriptor to use and, when it was handed over, the one to close (both -1 when
// empty). A descriptor lent by a caller (`lend`) is used but never closed here.
class FdOwner {
public:
    FdOwner() = default;
    explicit FdOwner(int owned) : owned_(owned), fd_(owned) {}
    ~FdOwner();
    FdOwner(FdOwner&& other) noexcept;
    FdOwner& operator=(FdOwner&& other) noexcept;
    FdOwner(const FdOwner&) = delete;
    FdOwner& operator=(const FdOwner&) = delete;

    // Closes what is owned now and takes `owned` over.
    void reset(int owned = -1);
    // Closes what is owned now and uses `fd` without owning it.
    void lend(int fd);
    // Gives the owned descriptor up without closing it.
    int release();

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

    // Closes the owned descriptor (EINTR retried); throws SystemError "close" on failure.
    void close();
    // The same, telling failure by its result (0 or -1, errno set) instead of throwing.
    int close_nothrow();

private:
    int owned_ = -1;
    int fd_ = -1;
};

// Both ends of one pipe.
class PipeOwner {
public:
    FdOwner read;
    FdOwner write;

    // pipe2() with `flags` (O_CLOEXEC, O_NONBLOCK); throws SystemError `what` on failure.
    void open(int flags, const char* what);
    // Closes both ends; throws SystemError "close" on failure.
    void close();
};

// Writes all `size` bytes of `data`, repeating on EINTR: true, or false with errno set.
bool writeAll(int fd, const char* data, std::size_t size);

// Adds O_NONBLOCK to the descriptor's status flags: true, or false with errno set.
bool setNonBlocking(int fd);

// Marks every descriptor from `first` up close-on-exec: for what the program inherited from its
// caller, which none of its children is meant to see. Errors are ignored.
void markCloseOnExecFrom(int first);

// Closes every descriptor from `first` to `last` (nothing when first > last): close_range, else
// one by one up to the descriptor table size. Meant for a child before exec; errors are ignored.
void closeRange(int first, int last);

}  // namespace quelt
