// The error type of the mailbox storage code: a filesystem error with an operation name,
// one or two paths and an errno value.
#pragma once

#include <string>

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/path.hpp>

namespace quelt::mail {

// what() reads `op`, ": ", strerror(code), ": " and "path1" in double quotes, then ", " and
// "path2" in double quotes when path2 is not empty.
class FSError : public boost::filesystem::filesystem_error {
public:
    FSError(const std::string& op, const boost::filesystem::path& path1, int code);
    FSError(const std::string& op, const boost::filesystem::path& path1,
            const boost::filesystem::path& path2, int code);
    ~FSError() override;
    const char* what() const noexcept override;
    int errorNumber() const noexcept { return code_; }

private:
    std::string text_;
    int code_;
};

}  // namespace quelt::mail
