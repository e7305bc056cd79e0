// File streams whose descriptor is close-on-exec.
#include "runtime/file_stream.h"

#include <fcntl.h>

#include <cerrno>

namespace quelt {

namespace {

int openRetrying(const std::string& path, int flags, mode_t perms)
{
    int fd;
    while ((fd = ::open(path.c_str(), flags | O_CLOEXEC, perms)) < 0 && errno == EINTR) {
    }
    return fd;
}

// The buffer takes the descriptor over; a failed open gives a buffer that is not open, and the
// stream is marked failed with the open's errno kept for the caller.
template <class Stream>
std::unique_ptr<__gnu_cxx::stdio_filebuf<char>> attach(Stream& stream, int fd,
                                                      std::ios_base::openmode mode)
{
    const int saved = errno;
    auto buf = std::make_unique<__gnu_cxx::stdio_filebuf<char>>(fd, mode);
    stream.rdbuf(buf.get());
    if (fd < 0)
        stream.setstate(std::ios_base::failbit);
    errno = saved;
    return buf;
}

}  // namespace

InputFile::InputFile(const std::string& path) : std::istream(nullptr)
{
    buf_ = attach(*this, openRetrying(path, O_RDONLY, 0), std::ios_base::in);
}

OutputFile::OutputFile(const std::string& path, std::ios_base::openmode mode, mode_t perms,
                       bool exclusive)
    : std::ostream(nullptr)
{
    const int flags = O_WRONLY | O_CREAT | (exclusive ? O_EXCL : 0) |
                      ((mode & std::ios_base::app) ? O_APPEND : O_TRUNC);
    buf_ = attach(*this, openRetrying(path, flags, perms), std::ios_base::out);
}

void OutputFile::close()
{
    if (!buf_->is_open())
        return;
    flush();
    if (!buf_->close())
        setstate(std::ios_base::failbit);
}

}  // namespace quelt
