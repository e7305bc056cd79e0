// A scoped exclusive lock file.
#include "services/process/mk_lock.h"

#include <stdexcept>

#include "runtime/errors.h"

namespace quelt {

MKLock::MKLock(const std::string& name, FilenameFlag filename, BlockFlag block)
{
    const bool hash = filename != ByFilename;
    lock_ = block == NoWait ? mk_nonblock_lock(name, hash) : mk_lock(name, hash);
    if (!lock_ || lock_->fd < 0)
        throwSystemError("lock() failed");
    if (lock_->fd == 0)
        throw std::runtime_error("lock(" + name + ") failed: file is already locked");
}

MKLock::~MKLock()
{
    rm_lock(lock_);
}

}  // namespace quelt
