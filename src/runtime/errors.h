// Exception types shared by every layer: system errors with errno, and the Postfix error family.
#pragma once

#include <stdexcept>
#include <string>

namespace quelt {

// A failed system call: the message and the errno value; what() appends the strerror text.
class SystemError : public std::runtime_error {
public:
    SystemError(const std::string& message, int code);
    ~SystemError() override;
    const char* what() const noexcept override;
    int code() const noexcept { return code_; }
    const std::string& message() const noexcept { return message_; }

private:
    std::string message_;
    int code_;
    mutable std::string text_;
};

// One type per errno value that callers single out (EPERM, ENOENT, EINTR, ECHILD, EAGAIN).
template <int N>
class ExSystemError : public SystemError {
public:
    explicit ExSystemError(const std::string& message) : SystemError(message, N) {}
};

// Throws ExSystemError<code> for 1, 2, 4, 10 and 11, otherwise SystemError; code 0 means errno.
[[noreturn]] void throwSystemError(const std::string& message, int code = 0);

class NotSupportedError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

namespace mail::postfix {

class PostfixError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A table source, main.cf or master.cf that Postfix's tools refuse.
class PostfixConfigurationError : public PostfixError {
public:
    using PostfixError::PostfixError;
};

// A record change that a lookup table refuses.
class PostfixDatabaseError : public PostfixError {
public:
    using PostfixError::PostfixError;
};

}  // namespace mail::postfix
}  // namespace quelt
