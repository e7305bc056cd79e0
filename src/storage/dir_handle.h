// Owner of an open directory stream (and of its descriptor while it is being opened).
#pragma once

#include <dirent.h>

namespace quelt::mail {

class DirHandle {
public:
    DirHandle() = default;
    // opendir(path); invalid (errno set) on failure.
    explicit DirHandle(const char* path);
    // The directory `name` below the open directory `parent`, without following a final link.
    DirHandle(const DirHandle& parent, const char* name);
    ~DirHandle();
    DirHandle(DirHandle&& other) noexcept;
    DirHandle& operator=(DirHandle&& other) noexcept;
    DirHandle(const DirHandle&) = delete;
    DirHandle& operator=(const DirHandle&) = delete;

    bool valid() const { return dir_ != nullptr; }
    int fd() const { return dir_ ? ::dirfd(dir_) : -1; }
    // The next entry, nullptr at the end.
    struct dirent* next() { return ::readdir(dir_); }
    // Closes the stream now: 0, or -1 with errno set (the handle is empty either way).
    int close();

private:
    DIR* dir_ = nullptr;
};

}  // namespace quelt::mail
