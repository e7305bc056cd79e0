// The working-directory scope.
#include "storage/fs_scopes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace quelt::mail {

CwdScope::CwdScope()
{
    saved_.reset(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
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
    if (!saved_.valid())
        return true;
    const int saved_errno = errno;
    const bool ok = ::fchdir(saved_.get()) == 0;
    const int fchdir_errno = errno;
    saved_.reset();  // a read-only directory descriptor: nothing is lost if closing fails
    errno = ok ? saved_errno : fchdir_errno;
    return ok;
}

}  // namespace quelt::mail
