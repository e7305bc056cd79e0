// Scoped owners of two process-wide file-system settings: the creation mask and the working
// directory. Both are put back when the scope ends, also on an exception.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "runtime/fd_owner.h"

namespace quelt::mail {

// Sets the creation mask and restores the previous one at the end of the scope.
class UmaskScope {
public:
    explicit UmaskScope(mode_t mask) : previous_(::umask(mask)) {}
    ~UmaskScope() { ::umask(previous_); }
    UmaskScope(const UmaskScope&) = delete;
    UmaskScope& operator=(const UmaskScope&) = delete;

private:
    mode_t previous_;
};

// Remembers the working directory (as an open descriptor, so long or renamed paths do not
// matter) and returns to it at the end of the scope.
class CwdScope {
public:
    CwdScope();
    ~CwdScope();
    CwdScope(const CwdScope&) = delete;
    CwdScope& operator=(const CwdScope&) = delete;

    // False (errno set) when the working directory could not be remembered.
    bool remembered() const { return saved_.valid(); }
    // chdir(path); false with errno set on failure.
    bool enter(const std::string& path);
    // Returns to the remembered directory now; false with errno set on failure. Keeps the
    // errno value of an earlier failure when the return succeeds.
    bool restore();

private:
    FdOwner saved_;
};

}  // namespace quelt::mail
