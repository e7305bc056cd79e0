// A recorded call stack, printed with demangled symbol names.
#include "runtime/traceback.h"

#include "runtime/demangle.h"

#include <execinfo.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace quelt {

Traceback::Traceback(int skip)
{
    count_ = ::backtrace(frames_, kMaxFrames);
    if (count_ < 0)
        count_ = 0;
    skip_ = skip < 0 ? 0 : (skip > count_ ? count_ : skip);
}

Traceback::Traceback(const Traceback& other) : count_(other.count_), skip_(other.skip_)
{
    std::memcpy(frames_, other.frames_, sizeof frames_);
}

Traceback& Traceback::operator=(const Traceback& other)
{
    if (this != &other) {
        std::memcpy(frames_, other.frames_, sizeof frames_);
        count_ = other.count_;
        skip_ = other.skip_;
        std::free(symbols_);
        symbols_ = nullptr;
    }
    return *this;
}

Traceback::~Traceback()
{
    std::free(symbols_);
}

namespace {

// Replaces the mangled name between "(" and "+" with its demangled form when possible.
std::string demangleLine(const std::string& line)
{
    const auto open = line.find('(');
    if (open == std::string::npos)
        return line;
    const auto plus = line.find('+', open + 1);
    if (plus == std::string::npos)
        return line;
    const auto name = demangle(line.substr(open + 1, plus - open - 1));
    if (!name)
        return line;
    return line.substr(0, open + 1) + *name + line.substr(plus);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Traceback& tb)
{
    if (!tb.symbols_ && tb.count_ > 0)
        tb.symbols_ = ::backtrace_symbols(tb.frames_, tb.count_);
    if (tb.symbols_) {
        out << "Traceback:" << '\n';
        for (int i = tb.skip_; i < tb.count_; ++i)
            out << '\t' << demangleLine(tb.symbols_[i]) << '\n';
    } else {
        out << "Traceback addresses:" << '\n';
        for (int i = tb.skip_; i < tb.count_; ++i)
            out << '\t' << tb.frames_[i] << '\n';
    }
    return out;
}

}  // namespace quelt
