// Line-by-line edits of small text files under a lock file.
#include "runtime/line_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>

#include "runtime/fd_owner.h"
#include "runtime/lock_file.h"
#include "runtime/log.h"

namespace {

using File = quelt::StdioFile;

// The replacement beside the file; removed unless it was renamed into place.
class TmpBeside {
public:
    explicit TmpBeside(const std::string& path) : path_(path + ".tmp") {}
    ~TmpBeside()
    {
        if (!renamed_)
            ::unlink(path_.c_str());
    }
    TmpBeside(const TmpBeside&) = delete;
    TmpBeside& operator=(const TmpBeside&) = delete;

    const std::string& path() const { return path_; }
    // Opens it for writing; failure is told straight on standard error, as for no other file.
    File open() const
    {
        File file(std::fopen(path_.c_str(), "we"));
        if (!file)
            std::fprintf(stderr, "Unable to open file %s: %s\n", path_.c_str(), std::strerror(errno));
        return file;
    }
    bool renameOver(const std::string& target)
    {
        renamed_ = ::rename(path_.c_str(), target.c_str()) == 0;
        return renamed_;
    }

private:
    std::string path_;
    bool renamed_ = false;
};

// Whole lines of any length, the newline kept, through getline(3)'s growing buffer.
class LineReader {
public:
    explicit LineReader(std::FILE* file) : file_(file) {}
    ~LineReader() { std::free(buffer_); }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    bool next(std::string_view& line)
    {
        const ssize_t length = ::getline(&buffer_, &capacity_, file_);
        if (length <= 0)
            return false;
        line = std::string_view(buffer_, static_cast<std::size_t>(length));
        return true;
    }

private:
    std::FILE* file_;
    char* buffer_ = nullptr;
    std::size_t capacity_ = 0;
};

std::string_view withoutNewline(std::string_view line)
{
    if (!line.empty() && line.back() == '\n')
        line.remove_suffix(1);
    return line;
}

File openOrSay(const std::string& path, const char* mode)
{
    // "e": close-on-exec, so that no child inherits the file.
    File file(std::fopen(path.c_str(), (std::string(mode) + "e").c_str()));
    if (!file)
        messlog2(0, 0, "Unable to open file %s: %s\n", path.c_str(), std::strerror(errno));
    return file;
}

bool closeOrSay(File& file, const std::string& path)
{
    if (std::fclose(file.release()) == 0)
        return true;
    messlog2(0, 0, "Unable to close file %s: %s\n", path.c_str(), std::strerror(errno));
    return false;
}

void writeOrDie(const void* data, std::size_t size, std::FILE* out, const std::string& path)
{
    if (size > 0 && std::fwrite(data, 1, size, out) != size)
        messlog2(1, 0, "cannot write a line to %s.tmp", path.c_str());
}

// Ends a copy of `path` (read through `in`) into `tmp` (written through `out`): closes both and
// renames the copy over the file. A read error, a failed close or a failed rename (reported as
// "<renameFailure> <tmp>: <why>") gives 1 and leaves the file as it was; otherwise 0.
int replaceWithCopy(File& in, File& out, TmpBeside& tmp, const std::string& path, const char* renameFailure)
{
    if (std::ferror(in.get())) {
        // A short read must not replace the file with its first half.
        messlog2(0, 0, "Unable to open file %s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    if (!closeOrSay(in, path) || !closeOrSay(out, tmp.path()))
        return 1;
    if (!tmp.renameOver(path)) {
        messlog2(0, 0, "%s %s: %s\n", renameFailure, tmp.path().c_str(), std::strerror(errno));
        return 1;
    }
    return 0;
}

// Copies `path` into its temporary file without the lines `drop` selects, then renames.
int rewriteWithout(const std::string& path, const std::function<bool(std::string_view)>& drop)
{
    File in = openOrSay(path, "r");
    if (!in)
        return 1;
    TmpBeside tmp(path);
    File out = tmp.open();
    if (!out)
        return 1;
    LineReader reader(in.get());
    std::string_view line;
    while (reader.next(line))
        if (!drop(withoutNewline(line)))
            writeOrDie(line.data(), line.size(), out.get(), path);
    return replaceWithCopy(in, out, tmp, path, "Error while rename file");
}

int addAtFront(const std::string& path, const std::vector<std::string>& lines)
{
    TmpBeside tmp(path);
    File out = tmp.open();
    if (!out)
        return 1;
    if (write_strings(out.get(), lines) != 0)
        messlog2(1, 0, "cannot write a line to %s.tmp", path.c_str());
    File in = openOrSay(path, "r");
    if (!in)
        return 1;
    char block[4096];
    std::size_t n;
    while ((n = std::fread(block, 1, sizeof block, in.get())) > 0)
        writeOrDie(block, n, out.get(), path);
    return replaceWithCopy(in, out, tmp, path, "Unable to rename file");
}

int addAtBack(const std::string& path, const std::vector<std::string>& lines)
{
    File out = openOrSay(path, "a");
    if (!out)
        return 1;
    if (write_strings(out.get(), lines) != 0)
        messlog2(1, 0, "cannot write a line to %s", path.c_str());
    return closeOrSay(out, path) ? 0 : 1;
}

bool matches(std::string_view line, std::string_view wanted, int position)
{
    switch (position) {
    case FILE_STR_PREFIX:
        return line.substr(0, wanted.size()) == wanted;
    case FILE_STR_SUFFIX:
        return line.size() >= wanted.size() && line.substr(line.size() - wanted.size()) == wanted;
    case FILE_STR_SUBSTRING:
        return line.find(wanted) != std::string_view::npos;
    default:
        return false;
    }
}

int edit(const std::string& path, const std::vector<std::string>& lines, int action, int position,
         bool existed)
{
    switch (action) {
    case FILE_STR_REMOVE:
        if (!existed) {
            messlog2(0, 0, "Unable to open file %s: %s\n", path.c_str(), std::strerror(ENOENT));
            return 1;
        }
        return rewriteWithout(path, [&](std::string_view line) {
            for (const auto& wanted : lines)
                if (line == withoutNewline(wanted))
                    return true;
            return false;
        });
    case FILE_STR_ADD:
        if (position == FILE_STR_FRONT)
            return addAtFront(path, lines);
        if (position == FILE_STR_BACK)
            return addAtBack(path, lines);
        return 0;
    case FILE_STR_REMOVE_MATCHING:
        return rewriteWithout(path, [&](std::string_view line) {
            for (const auto& wanted : lines)
                if (matches(line, wanted, position))
                    return true;
            return false;
        });
    default:
        return 0;
    }
}

}  // namespace

int write_strings(std::FILE* stream, const std::vector<std::string>& lines)
{
    for (const auto& line : lines) {
        if (!line.empty() && std::fwrite(line.data(), 1, line.size(), stream) != line.size())
            return -1;
        if ((line.empty() || line.back() != '\n') && std::fputc('\n', stream) == EOF)
            return -1;
    }
    return 0;
}

int file_strings(const std::string& path, const std::vector<std::string>& lines, int action,
                 int position)
{
    lock_ptr lock = mk_lock(path, true);
    if (!is_locked(lock)) {
        messlog2(0, 0, "Error occurred while locking the file %s: %s\n", path.c_str(),
                 std::strerror(errno));
        return 1;
    }
    struct stat before {};
    bool existed = true;
    if (::stat(path.c_str(), &before) != 0) {
        if (errno != ENOENT) {
            messlog2(0, 0, "file_str: Unable to stat file %s: %s\n", path.c_str(), std::strerror(errno));
            return 1;
        }
        existed = false;
    }
    if (edit(path, lines, action, position, existed) != 0)
        return 1;
    if (existed) {
        if (::chown(path.c_str(), before.st_uid, before.st_gid) != 0) {
            messlog2(0, 0, "file_str: ERROR: Unable to chown file %s: %s", path.c_str(),
                     std::strerror(errno));
            return 1;
        }
        if (::chmod(path.c_str(), before.st_mode & 07777) != 0) {
            messlog2(0, 0, "file_str: ERROR: Unable to chmod file %s: %s", path.c_str(),
                     std::strerror(errno));
            return 1;
        }
    }
    if (rm_lock(lock) != 0) {
        messlog2(0, 0, "Error occurred while unlocking the file %s: %s\n", path.c_str(),
                 std::strerror(errno));
        return 1;
    }
    return 0;
}

int file_str(const std::string& path, const std::string& line, int action, int position)
{
    return file_strings(path, {line}, action, position);
}
