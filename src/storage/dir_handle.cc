// The directory-stream owner.
#include "storage/dir_handle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "runtime/fd_owner.h"

namespace quelt::mail {

DirHandle::DirHandle(const char* path) : dir_(::opendir(path)) {}

DirHandle::DirHandle(const DirHandle& parent, const char* name)
{
    FdOwner fd(::openat(parent.fd(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.valid())
        return;
    dir_ = ::fdopendir(fd.get());
    if (dir_)
        fd.release();  // the stream owns it now
    else {
        const int saved = errno;
        fd.reset();
        errno = saved;
    }
}

DirHandle::~DirHandle()
{
    if (dir_)
        ::closedir(dir_);
}

int DirHandle::close()
{
    return ::closedir(std::exchange(dir_, nullptr));
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
