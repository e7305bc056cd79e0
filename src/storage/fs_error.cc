// The filesystem error of the storage code and its message.
#include "storage/fs_error.h"

#include <cstring>

namespace quelt::mail {

namespace {

boost::system::error_code errorCode(int code)
{
    return boost::system::error_code(code, boost::system::system_category());
}

std::string describe(const std::string& op, const boost::filesystem::path& path1,
                     const boost::filesystem::path& path2, int code)
{
    std::string text = op + ": " + std::strerror(code) + ": \"" + path1.string() + "\"";
    if (!path2.empty())
        text += ", \"" + path2.string() + "\"";
    return text;
}

}  // namespace

FSError::FSError(const std::string& op, const boost::filesystem::path& path1, int code)
    : FSError(op, path1, boost::filesystem::path(), code)
{
}

FSError::FSError(const std::string& op, const boost::filesystem::path& path1,
                 const boost::filesystem::path& path2, int code)
    : boost::filesystem::filesystem_error(op, path1, path2, errorCode(code)),
      text_(describe(op, path1, path2, code)),
      code_(code)
{
}

FSError::~FSError() = default;

const char* FSError::what() const noexcept
{
    return text_.c_str();
}

}  // namespace quelt::mail
