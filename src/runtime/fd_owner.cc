// Owners of file descriptors.
#include "runtime/fd_owner.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "runtime/errors.h"

namespace quelt {

namespace {

int closeRetrying(int fd)
{
    // Linux releases the descriptor even when close() reports EINTR, so a retry would only
    // ever see EBADF; treat EINTR as done.
    if (::close(fd) == 0 || errno == EINTR)
        return 0;
    return -1;
}

}  // namespace

FdOwner::~FdOwner()
{
    close_nothrow();
}

FdOwner::FdOwner(FdOwner&& other) noexcept
    : owned_(std::exchange(other.owned_, -1)), fd_(std::exchange(other.fd_, -1))
{
}

FdOwner& FdOwner::operator=(FdOwner&& other) noexcept
{
    if (this != &other) {
        close_nothrow();
        owned_ = std::exchange(other.owned_, -1);
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

void FdOwner::reset(int owned)
{
    close_nothrow();
    owned_ = owned;
    fd_ = owned;
}

void FdOwner::lend(int fd)
{
    close_nothrow();
    fd_ = fd;
}

int FdOwner::release()
{
    const int fd = owned_;
    owned_ = -1;
    fd_ = -1;
    return fd;
}

void FdOwner::close()
{
    if (close_nothrow() != 0)
        throwSystemError("close");
}

int FdOwner::close_nothrow()
{
    const int fd = owned_;
    owned_ = -1;
    fd_ = -1;
    if (fd < 0)
        return 0;
    return closeRetrying(fd);
}

void PipeOwner::open(int flags, const char* what)
{
    int fds[2];
    if (::pipe2(fds, flags) != 0)
        throwSystemError(what);
    read.reset(fds[0]);
    write.reset(fds[1]);
}

void PipeOwner::close()
{
    const int r = read.close_nothrow();
    const int saved = errno;
    const int w = write.close_nothrow();
    if (r != 0)
        throwSystemError("close", saved);
    if (w != 0)
        throwSystemError("close");
}

bool writeAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

bool setNonBlocking(int fd)
{
    const int flags = ::fcntl(fd, F_GETFL);
    return flags >= 0 && ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) >= 0;
}

void markCloseOnExecFrom(int first)
{
    if (::close_range(static_cast<unsigned>(first), ~0U, CLOSE_RANGE_CLOEXEC) == 0)
        return;
    for (int fd = first, end = ::getdtablesize(); fd < end; ++fd) {
        const int flags = ::fcntl(fd, F_GETFD);
        if (flags >= 0)
            ::fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
    }
}

void closeRange(int first, int last)
{
    if (first > last)
        return;
    if (::close_range(static_cast<unsigned>(first), static_cast<unsigned>(last), 0) == 0)
        return;
    for (int fd = first, end = std::min(last, ::getdtablesize() - 1); fd <= end; ++fd)
        ::close(fd);
}

}  // namespace quelt
