// File streams whose descriptor is close-on-exec: std::fstream opens without O_CLOEXEC, so a
// child started while one is open would inherit the file.
#pragma once

#include <ext/stdio_filebuf.h>

#include <sys/types.h>

#include <ios>
#include <istream>
#include <memory>
#include <ostream>
#include <string>

namespace quelt {

// Reads a file; a file that cannot be opened leaves the stream failed (errno set).
class InputFile : public std::istream {
public:
    explicit InputFile(const std::string& path);
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    bool is_open() const { return buf_->is_open(); }

private:
    std::unique_ptr<__gnu_cxx::stdio_filebuf<char>> buf_;
};

// Writes a file, created with `perms` (less the umask) when missing. `mode` as for
// std::ofstream: out alone or with trunc truncates, app appends; `exclusive`: the file must not
// exist yet (EEXIST). A file that cannot be opened leaves the stream failed (errno set).
class OutputFile : public std::ostream {
public:
    explicit OutputFile(const std::string& path, std::ios_base::openmode mode = std::ios_base::out,
                        mode_t perms = 0666, bool exclusive = false);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool is_open() const { return buf_->is_open(); }
    // Flushes and closes; the stream fails when a write or the close failed.
    void close();

private:
    std::unique_ptr<__gnu_cxx::stdio_filebuf<char>> buf_;
};

}  // namespace quelt
