// Temporary files written as streams.
#include "services/process/tmp_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "runtime/errors.h"

namespace quelt {

namespace {

std::string makeTemp(const std::string& prefix, int& fd)
{
    std::vector<char> name(prefix.begin(), prefix.end());
    const char suffix[] = "XXXXXX";
    name.insert(name.end(), suffix, suffix + sizeof suffix);
    fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0)
        throwSystemError("mkstemp() failed: ");
    return name.data();
}

}  // namespace

TmpFileBase::TmpFileBase(const std::string& prefix) : path_(makeTemp(prefix, fd_)) {}

TmpFile::TmpFile(const std::string& prefix, bool autoclean)
    : std::ostream(nullptr), TmpFileBase(prefix),
      buf_(std::make_unique<__gnu_cxx::stdio_filebuf<char>>(fd_, std::ios_base::out)),
      autoclean_(autoclean)
{
    rdbuf(buf_.get());
}

bool TmpFile::close()
{
    if (!buf_->is_open())
        return !fail();
    flush();
    if (!buf_->close())
        setstate(std::ios_base::failbit);
    return !fail();
}

TmpFile::~TmpFile()
{
    close();
    if (autoclean_ && ::unlink(path_.c_str()) != 0)
        std::fprintf(stderr, "TmpFile autoclean failed: %s\n", std::strerror(errno));
}

AutocleanOFStream::AutocleanOFStream(const std::string& path, std::ios_base::openmode mode)
    : OutputFile(path, mode), path_(path)
{
}

AutocleanOFStream::~AutocleanOFStream()
{
    const int saved = errno;
    ::unlink(path_.c_str());
    errno = saved;
    close();
}

}  // namespace quelt
