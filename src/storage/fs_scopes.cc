// The working-directory scope.
#include "storage/fs_scopes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace quelt::mail {

CwdScope::CwdScope()
{
    saved_ = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

CwdScope::~CwdScope()
{
    const int saved_errno = errno;
    restore();
    errno = saved_errno;
}

bool CwdScope::enter(const std::string& path)
{
    return ::chdir(path.c_str()) == 0;
}

bool CwdScope::restore()
{
    if (saved_ < 0)
        return true;
    const int saved_errno = errno;
    const bool ok = ::fchdir(saved_) == 0;
    const int fchdir_errno = errno;
    ::close(saved_);  // a read-only directory descriptor: nothing is lost if closing fails
    saved_ = -1;
    errno = ok ? saved_errno : fchdir_errno;
    return ok;
}

}  // namespace quelt::mail
