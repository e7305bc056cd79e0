// Advisory exclusive locks on files under /var/lock/files, shared between processes.
#pragma once

#include <memory>
#include <string>

// One lock attempt. `fd` is the open lock file (> 0 while held), 0 when a non-blocking
// attempt found the lock held by someone else, negative when the attempt failed. Destroying
// the record releases the lock; rm_lock does the same and reports a failing close.
struct lock_struct_t {
    int fd = -1;
    std::string path;

    lock_struct_t() = default;
    ~lock_struct_t();
    lock_struct_t(const lock_struct_t&) = delete;
    lock_struct_t& operator=(const lock_struct_t&) = delete;
};

using lock_ptr = std::unique_ptr<lock_struct_t>;

// The folder of the lock files. /var/lock is a tmpfs on Debian, emptied at boot: the package's
// tmpfiles.d entry and mailrig-setup create it, and a keyed lock makes it again when missing.
constexpr const char* kLockFilesDir = "/var/lock/files";

// kLockFilesDir, "/" and the lower-case hexadecimal MD5 digest of `name`; "" when
// the digest cannot be computed (the lock attempt then fails to open).
std::string mk_flock_path(const std::string& name);

// Opens the lock file (`mk_flock_path(name)` when `hash`, else `name` itself; created,
// truncated, mode 0644) and takes an exclusive flock, waiting for it. An open failure is
// printed ("Unable to open file ...") and leaves a negative fd. The lock file stays on disk.
lock_ptr mk_lock(const std::string& name, bool hash);
// The same without waiting: a lock held elsewhere gives fd 0 (errno EWOULDBLOCK).
lock_ptr mk_nonblock_lock(const std::string& name, bool hash);

// The record exists and holds the lock.
bool is_locked(const lock_ptr& lock);
// No record, or the lock is held by someone else.
bool is_already_locked(const lock_ptr& lock);

// Releases the lock and frees the record: 0, or -1 for no record or a failing close (printed
// as "An error occured during closing ..."). `lock` is empty afterwards.
int rm_lock(lock_ptr& lock);
int free_lock(lock_ptr& lock);
