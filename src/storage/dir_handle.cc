// The directory-stream owner.
#include "storage/dir_handle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace quelt::mail {

DirHandle::DirHandle(const char* path) : dir_(::opendir(path)) {}

DirHandle::DirHandle(const DirHandle& parent, const char* name)
{
    const int fd = ::openat(parent.fd(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return;
    dir_ = ::fdopendir(fd);
    if (!dir_) {
        const int saved = errno;
        ::close(fd);  // fdopendir did not take it over
        errno = saved;
    }
}

DirHandle::~DirHandle()
{
    if (dir_)
        ::closedir(dir_);
}

DirHandle::DirHandle(DirHandle&& other) noexcept : dir_(std::exchange(other.dir_, nullptr)) {}

DirHandle& DirHandle::operator=(DirHandle&& other) noexcept
{
    if (this != &other) {
        if (dir_)
            ::closedir(dir_);
        dir_ = std::exchange(other.dir_, nullptr);
    }
    return *this;
}

}  // namespace quelt::mail
