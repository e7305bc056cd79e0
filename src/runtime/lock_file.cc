// Advisory exclusive locks on files under /var/lock/files.
#include "runtime/lock_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <openssl/evp.h>

#include "runtime/fd_owner.h"
#include "runtime/log.h"

namespace {

lock_ptr mk_lock_(const std::string& name, int openFlags, int operation, bool hash)
{
    auto lock = std::make_unique<lock_struct_t>();
    lock->path = hash ? mk_flock_path(name) : name;
    // Close-on-exec: a child must not keep the lock alive after we release it.
    quelt::FdOwner fd(::open(lock->path.c_str(), openFlags | O_CLOEXEC, 0644));
    // /var/lock is a tmpfs on most systems: the folder of the keyed locks is gone after a boot.
    if (!fd.valid() && errno == ENOENT && hash && ::mkdir(kLockFilesDir, 0755) == 0)
        fd.reset(::open(lock->path.c_str(), openFlags | O_CLOEXEC, 0644));
    if (!fd.valid()) {
        const int saved = errno;
        lock->fd = fd.release();
        messlog2(0, 0, "Unable to open file \"%s\": %s.", lock->path.c_str(), std::strerror(saved));
        errno = saved;  // callers report the open failure's own reason
        return lock;
    }
    if (fd.get() == 0) {
        // Descriptor 0 would read as "held by someone else".
        const int moved = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, 3);
        if (moved < 0)
            return lock;
        fd.reset(moved);
    }
    while (::flock(fd.get(), operation) != 0) {
        if (errno == EINTR)
            continue;
        const int saved = errno;
        fd.close_nothrow();
        errno = saved;
        lock->fd = saved == EWOULDBLOCK ? 0 : -1;
        return lock;
    }
    lock->fd = fd.release();
    return lock;
}

}  // namespace

lock_struct_t::~lock_struct_t()
{
    if (fd > 0)
        quelt::FdOwner(fd).close_nothrow();
}

std::string mk_flock_path(const std::string& name)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    std::string path = std::string(kLockFilesDir) + "/";
    if (EVP_Digest(name.data(), name.size(), digest, &length, EVP_md5(), nullptr) != 1)
        return std::string();
    static const char hex[] = "0123456789abcdef";
    for (unsigned int i = 0; i < length; ++i) {
        path += hex[digest[i] >> 4];
        path += hex[digest[i] & 15];
    }
    return path;
}

lock_ptr mk_lock(const std::string& name, bool hash)
{
    return mk_lock_(name, O_RDWR | O_CREAT | O_TRUNC, LOCK_EX, hash);
}

lock_ptr mk_nonblock_lock(const std::string& name, bool hash)
{
    return mk_lock_(name, O_RDWR | O_CREAT | O_TRUNC, LOCK_EX | LOCK_NB, hash);
}

bool is_locked(const lock_ptr& lock)
{
    return lock && lock->fd > 0;
}

bool is_already_locked(const lock_ptr& lock)
{
    return !lock || lock->fd == 0;
}

int rm_lock(lock_ptr& lock)
{
    if (!lock)
        return -1;
    int result = 0;
    if (lock->fd > 0 && quelt::FdOwner(std::exchange(lock->fd, -1)).close_nothrow() != 0) {
        messlog2(0, 0, "An error occured during closing '%s' file: %s\n", lock->path.c_str(),
                 std::strerror(errno));
        result = -1;
    }
    lock.reset();
    return result;
}

int free_lock(lock_ptr& lock)
{
    return rm_lock(lock);
}
