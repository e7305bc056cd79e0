// A scoped exclusive lock file (see runtime/lock_file.h), as an exception-throwing owner.
#pragma once

#include <string>

#include "runtime/lock_file.h"

namespace quelt {

class MKLock {
public:
    // ByKey: the lock file is /var/lock/files/<MD5 of name>; ByFilename: `name` is its path.
    enum FilenameFlag { ByKey = 0, ByFilename = 1 };
    // Wait for a held lock, or fail at once.
    enum BlockFlag { Wait = 0, NoWait = 1 };

    // Takes the lock. Throws SystemError "lock() failed" when the lock file cannot be opened
    // or locked, std::runtime_error "lock(<name>) failed: file is already locked" when NoWait
    // finds it held.
    explicit MKLock(const std::string& name, FilenameFlag filename = ByKey, BlockFlag block = Wait);
    // Releases the lock (the lock file stays).
    ~MKLock();
    MKLock(const MKLock&) = delete;
    MKLock& operator=(const MKLock&) = delete;

    const std::string& path() const { return lock_->path; }

private:
    lock_ptr lock_;
};

}  // namespace quelt
