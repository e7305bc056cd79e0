// A recorded call stack, printed with demangled symbol names.
#pragma once

#include <ostream>

namespace quelt {

class Traceback {
public:
    // Records up to 11 return addresses and skips the first `skip` of them when printed.
    explicit Traceback(int skip = 0);
    Traceback(const Traceback& other);
    Traceback& operator=(const Traceback& other);
    virtual ~Traceback();

    friend std::ostream& operator<<(std::ostream& out, const Traceback& tb);

private:
    static constexpr int kMaxFrames = 11;
    void* frames_[kMaxFrames];
    int count_;
    int skip_;
    mutable char** symbols_ = nullptr;
};

std::ostream& operator<<(std::ostream& out, const Traceback& tb);

}  // namespace quelt
