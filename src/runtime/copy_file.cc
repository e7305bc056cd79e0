// Copying whole files: under the destination's lock, or atomically into place.
#include "runtime/copy_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "runtime/fd_owner.h"
#include "runtime/lock_file.h"
#include "runtime/log.h"

namespace {

ssize_t readRetrying(int fd, char* buffer, std::size_t size)
{
    ssize_t n;
    while ((n = ::read(fd, buffer, size)) < 0 && errno == EINTR) {
    }
    return n;
}

}  // namespace

int copy_file(const std::string& source, const std::string& destination)
{
    lock_ptr lock = mk_lock(destination, true);
    if (!is_locked(lock)) {
        messlog2(0, 0, "Error occurred while locking the file %s\n", destination.c_str());
        return 1;
    }
    quelt::FdOwner in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (!in.valid()) {
        messlog2(0, 0, "Unable to open file %s: %s", source.c_str(), std::strerror(errno));
        return 1;
    }
    struct stat info {};
    if (::fstat(in.get(), &info) != 0) {
        quelt_log(3, "Unable to get info for file '%s': %s", source.c_str(), std::strerror(errno));
        return 1;
    }
    quelt::FdOwner out;
    if (destination == "-") {
        out.lend(STDOUT_FILENO);
    } else {
        out.reset(::open(destination.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                         info.st_mode & 07777));
        if (!out.valid()) {
            messlog2(0, 0, "Unable to open file %s: %s", destination.c_str(), std::strerror(errno));
            return 1;
        }
    }
    char block[4096];
    ssize_t n;
    while ((n = readRetrying(in.get(), block, sizeof block)) > 0) {
        if (!quelt::writeAll(out.get(), block, static_cast<std::size_t>(n))) {
            messlog2(0, 0, "Unable to copy file %s to %s: %s\n", source.c_str(), destination.c_str(),
                     std::strerror(errno));
            return 1;
        }
    }
    if (n < 0) {
        messlog2(0, 0, "Error while copying file %s to %s: %s", source.c_str(), destination.c_str(),
                 std::strerror(errno));
        return 1;
    }
    if (in.close_nothrow() != 0) {
        messlog2(0, 0, "Unable to close file %s: %s\n", source.c_str(), std::strerror(errno));
        return 1;
    }
    if (out.close_nothrow() != 0) {
        messlog2(0, 0, "Unable to close file %s: %s\n", destination.c_str(), std::strerror(errno));
        return 1;
    }
    if (rm_lock(lock) != 0)
        messlog2(0, 0, "Error occurred while unlocking the file %s\n", destination.c_str());
    return 0;
}

void copy_file_atomic(const std::string& source, const std::string& destination, uid_t owner,
                      gid_t group, mode_t mode)
{
    std::vector<char> name(destination.begin(), destination.end());
    const char suffix[] = ".XXXXXX";
    name.insert(name.end(), suffix, suffix + sizeof suffix);  // with its NUL
    bool created = false;
    // Removes the half-written copy before the process ends.
    auto fail = [&](const char* format) {
        const int saved = errno;
        if (created)
            ::unlink(name.data());
        errno = saved;
        messlog2(1, 0, format, source.c_str(), destination.c_str());
    };

    quelt::FdOwner in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    if (!in.valid())
        fail("copy_file_atomic(%s -> %s): open failed");
    quelt::FdOwner out(::mkostemp(name.data(), O_CLOEXEC));
    if (!out.valid())
        fail("copy_file_atomic(%s -> %s): mkstemp failed");
    created = true;
    char block[4096];
    ssize_t n;
    while ((n = readRetrying(in.get(), block, sizeof block)) > 0)
        if (!quelt::writeAll(out.get(), block, static_cast<std::size_t>(n)))
            fail("copy_file_atomic(%s -> %s): write failed");
    if (n < 0)
        fail("copy_file_atomic(%s -> %s): write failed");
    if (::fchown(out.get(), owner, group) != 0)
        fail("copy_file_atomic(%s -> %s): chown failed");
    if (::fchmod(out.get(), mode) != 0)
        fail("copy_file_atomic(%s -> %s): chmod failed");
    if (out.close_nothrow() != 0)
        fail("copy_file_atomic(%s -> %s): flush failed");
    if (::rename(name.data(), destination.c_str()) != 0)
        fail("copy_file_atomic(%s -> %s): rename failed");
}
