// Temporary files: one made by mkstemp and written as a stream, and an output file stream
// that removes its file when it goes.
#pragma once

#include <ext/stdio_filebuf.h>

#include <memory>
#include <ostream>
#include <string>

#include "runtime/file_stream.h"

namespace quelt {

// The file mkstemp made and its descriptor.
class TmpFileBase {
public:
    // Creates "<prefix>XXXXXX"; throws SystemError "mkstemp() failed: ".
    explicit TmpFileBase(const std::string& prefix);
    const std::string& path() const { return path_; }
    int fd() const { return fd_; }

protected:
    std::string path_;
    int fd_;
};

// Writes a new temporary file. The stream owns the descriptor; with autoclean the file is
// removed on destruction (a failure is printed, never thrown), without it the caller keeps
// the file (typically renaming it into place after flushing).
class TmpFile : public std::ostream, public TmpFileBase {
public:
    explicit TmpFile(const std::string& prefix, bool autoclean = true);
    ~TmpFile() override;
    TmpFile(const TmpFile&) = delete;
    TmpFile& operator=(const TmpFile&) = delete;

    // Flushes and closes the stream (idempotent); false when writing failed.
    bool close();
    // Turns autoclean off: the file has been moved into place and is the caller's now.
    void keep() { autoclean_ = false; }

private:
    std::unique_ptr<__gnu_cxx::stdio_filebuf<char>> buf_;
    bool autoclean_;
};

// An output file stream (close-on-exec) whose file is removed when the stream is destroyed.
class AutocleanOFStream : public OutputFile {
public:
    explicit AutocleanOFStream(const std::string& path,
                               std::ios_base::openmode mode = std::ios_base::out);
    ~AutocleanOFStream() override;
    AutocleanOFStream(const AutocleanOFStream&) = delete;
    AutocleanOFStream& operator=(const AutocleanOFStream&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace quelt
