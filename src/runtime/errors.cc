// System errors: the errno-carrying exception and the thrower that picks its type.
#include "runtime/errors.h"

#include <cerrno>
#include <cstring>

namespace quelt {

SystemError::SystemError(const std::string& message, int code)
    : std::runtime_error(message), message_(message), code_(code)
{
}

SystemError::~SystemError() = default;

const char* SystemError::what() const noexcept
{
    try {
        if (text_.empty()) {
            std::string text;
            if (!message_.empty())
                text = message_ + ": ";
            text += std::strerror(code_);
            text_ = text;
        }
        return text_.c_str();
    } catch (...) {
        return std::runtime_error::what();
    }
}

void throwSystemError(const std::string& message, int code)
{
    switch (code) {
    case EPERM: throw ExSystemError<EPERM>(message);
    case ENOENT: throw ExSystemError<ENOENT>(message);
    case EINTR: throw ExSystemError<EINTR>(message);
    case ECHILD: throw ExSystemError<ECHILD>(message);
    case EAGAIN: throw ExSystemError<EAGAIN>(message);
    case 0: throw SystemError(message, errno);
    default: throw SystemError(message, code);
    }
}

}  // namespace quelt
