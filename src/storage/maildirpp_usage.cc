// Maildir++ usage: the folder scan, the maildirsize parser, over-quota checks, tree sizes.
#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/file_stream.h"
#include "storage/dir_handle.h"
#include "storage/fs_scopes.h"
#include "storage/maildirpp.h"

using quelt::mail::CwdScope;
using quelt::mail::DirHandle;

namespace {

constexpr size_t kPathBuffer = 4096;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isBlank(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// Adds the messages of one new/ or cur/ folder; returns false when it cannot be read.
bool scanMessages(const std::string& folder, MaildirppUsage& usage)
{
    DirHandle dir(folder.c_str());
    if (!dir.valid())
        return false;
    struct stat st;
    if (::fstat(dir.fd(), &st) == 0 && st.st_mtime > usage.newest)
        usage.newest = st.st_mtime;
    while (struct dirent* entry = dir.next()) {
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        if (const auto size = maildir_name_size(name)) {
            usage.bytes += static_cast<long long>(*size);
        } else {
            // Message files without a size in their name cost one stat each.
            if (::fstatat(dir.fd(), name, &st, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            usage.bytes += st.st_size;
        }
        ++usage.count;
    }
    return true;
}

// A signed decimal number at `p` (leading blanks allowed), advancing `p`; false when there is
// none or it overflows.
bool readSigned(const char*& p, long long& value)
{
    const char* start = p;
    while (isBlank(*start))
        ++start;
    if (!isDigit(start[0]) && !((start[0] == '-' || start[0] == '+') && isDigit(start[1])))
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(start, &end, 10);
    if (errno == ERANGE)
        return false;
    p = end;
    return true;
}

// An unsigned count; a negative delta (written by readers that expunge) wraps, so that summing
// the lines subtracts it.
bool readCount(const char*& p, unsigned long long& value)
{
    const char* start = p;
    while (isBlank(*start))
        ++start;
    const bool negative = start[0] == '-';
    if (!isDigit(start[negative ? 1 : 0]))
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtoull(start + (negative ? 1 : 0), &end, 10);
    if (errno == ERANGE)
        return false;
    if (negative)
        value = 0ULL - value;
    p = end;
    return true;
}

bool parseDefinition(const std::string& line, MaildirppQuota& quota)
{
    if (line.empty()) {
        quota.byteLimit = 0;
        quota.countLimit = 0;
        return true;
    }
    const char* p = line.c_str();
    long long bytes = 0;
    unsigned long long count = 0;
    if (!readSigned(p, bytes) || bytes < 0)
        return false;
    if (*p == 'S')
        ++p;
    if (*p == ',') {
        ++p;
        if (!isDigit(*p) || !readCount(p, count) || *p != 'C')
            return false;
        ++p;
    }
    if (*p != '\0')
        return false;
    quota.byteLimit = bytes;
    quota.countLimit = count;
    return true;
}

bool parseUsageLine(const std::string& line, long long& bytes, unsigned long long& count)
{
    const char* p = line.c_str();
    if (!readSigned(p, bytes) || !isBlank(*p) || !readCount(p, count))
        return false;
    return *p == '\0';
}

long long entrySize(const struct stat& st, bool inBlocks)
{
    return inBlocks ? static_cast<long long>(st.st_blocks) * 512 : static_cast<long long>(st.st_size);
}

long long sizeBelow(DirHandle& dir, bool inBlocks)
{
    long long total = 0;
    while (struct dirent* entry = dir.next()) {
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        struct stat st;
        if (::fstatat(dir.fd(), name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;  // vanished meanwhile
        total += entrySize(st, inBlocks);
        if (S_ISDIR(st.st_mode)) {
            DirHandle child(dir, name);
            if (child.valid())
                total += sizeBelow(child, inBlocks);
        }
    }
    return total;
}

}  // namespace

std::optional<unsigned long long> maildir_name_size(const char* name)
{
    const char* p = name;
    while ((p = std::strstr(p, ",S=")) != nullptr) {
        p += 3;
        const char* d = p;
        unsigned long long value = 0;
        bool overflow = false;
        for (; isDigit(*d); ++d) {
            const unsigned digit = static_cast<unsigned>(*d - '0');
            if (value > (static_cast<unsigned long long>(LLONG_MAX) - digit) / 10)
                overflow = true;
            else
                value = value * 10 + digit;
        }
        if (d != p && (*d == ':' || *d == '\0') && !overflow)
            return value;
    }
    return std::nullopt;
}

bool is_maildirpp_folder_name(const char* name)
{
    return name[0] == '.' && name[1] != '\0' && name[1] != '.' && std::strcmp(name, ".Trash") != 0;
}

MaildirppUsage scan_maildirpp_usage()
{
    MaildirppUsage usage;
    scanMessages("new", usage);
    scanMessages("cur", usage);
    DirHandle maildir(".");
    if (!maildir.valid())
        return usage;
    while (struct dirent* entry = maildir.next()) {
        const char* name = entry->d_name;
        if (entry->d_type != DT_DIR || !is_maildirpp_folder_name(name))
            continue;
        if (std::strlen(name) + sizeof("/maildirfolder") > kPathBuffer)
            continue;
        scanMessages(std::string(name) + "/new", usage);
        scanMessages(std::string(name) + "/cur", usage);
    }
    return usage;
}

bool parse_maildirsize(const std::string& text, MaildirppQuota& quota)
{
    quota = MaildirppQuota();
    if (text.size() > kMaildirsizeMaxTrusted)
        return false;
    size_t eol = text.find('\n');
    if (!parseDefinition(text.substr(0, eol), quota)) {
        quota.byteLimit = kMaildirppNoByteLimit;
        quota.countLimit = kMaildirppNoCountLimit;
        return false;
    }
    if (eol == std::string::npos)
        return text.empty();  // a definition without its line feed is cut short
    for (size_t start = eol + 1; start < text.size(); start = eol + 1) {
        eol = text.find('\n', start);
        if (eol == std::string::npos)
            return false;
        long long bytes = 0;
        unsigned long long count = 0;
        if (!parseUsageLine(text.substr(start, eol - start), bytes, count))
            return false;
        quota.bytes += bytes;
        quota.count += count;
    }
    return true;
}

std::optional<std::string> format_maildirsize(long long byteLimit, unsigned long long countLimit,
                                              long long bytes, unsigned long long count)
{
    char buffer[100];
    const int n = std::snprintf(buffer, sizeof buffer, "%lldS,%lluC\n%12lld%12llu\n", byteLimit,
                                countLimit, bytes, count);
    if (n < 0 || static_cast<size_t>(n) >= sizeof buffer)
        return std::nullopt;
    return std::string(buffer, static_cast<size_t>(n));
}

int get_maildirpp_usage_and_limits(const std::string& maildir, bool strict, long long& bytes,
                                   unsigned long long& count, long long& byteLimit,
                                   unsigned long long& countLimit)
{
    CwdScope cwd;
    if (!cwd.remembered() || !cwd.enter(maildir))
        return 0;
    byteLimit = kMaildirppNoByteLimit;
    countLimit = kMaildirppNoCountLimit;

    bool trusted = false;
    MaildirppQuota quota;
    quelt::InputFile file("maildirsize");
    if (file) {
        std::string text(kMaildirsizeMaxTrusted + 1, '\0');
        file.read(&text[0], static_cast<std::streamsize>(text.size()));
        if (!file.bad()) {
            text.resize(static_cast<size_t>(file.gcount()));
            trusted = parse_maildirsize(text, quota);
        }
    }
    if (trusted) {
        bytes = quota.bytes;
        count = quota.count;
        byteLimit = quota.byteLimit;
        countLimit = quota.countLimit;
    } else {
        if (strict)
            return 0;
        const MaildirppUsage usage = scan_maildirpp_usage();
        bytes = usage.bytes;
        count = usage.count;
    }
    return cwd.restore() ? 1 : 0;
}

int get_maildirpp_usage(const std::string& maildir, long long& bytes, unsigned long long& count)
{
    long long byteLimit;
    unsigned long long countLimit;
    return get_maildirpp_usage_and_limits(maildir, false, bytes, count, byteLimit, countLimit);
}

int check_maildirpp_overquota(const std::string& maildir, long long addBytes,
                              unsigned long long addCount)
{
    long long bytes = 0;
    unsigned long long count = 0;
    long long byteLimit = 0;
    unsigned long long countLimit = 0;
    if (!get_maildirpp_usage_and_limits(maildir, true, bytes, count, byteLimit, countLimit))
        return 0;
    if (bytes < 0)
        bytes = 0;
    if (byteLimit != 0 && bytes + addBytes > byteLimit)
        return 1;
    if (countLimit != 0 && count + addCount > countLimit)
        return 1;
    return 0;
}

long long get_dir_size(const std::string& path, bool inBlocks)
{
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0)
        return -1;
    long long total = entrySize(st, inBlocks);
    if (S_ISDIR(st.st_mode)) {
        DirHandle dir(path.c_str());
        if (dir.valid())
            total += sizeBelow(dir, inBlocks);
    }
    return total;
}
