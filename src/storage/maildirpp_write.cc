// Writing maildirsize: a temporary file under tmp/ created without following planted links,
// filled with the limits and a fresh scan, renamed into place and backdated when needed.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>

#include "runtime/fd_owner.h"
#include "runtime/log.h"
#include "storage/dir_handle.h"
#include "storage/fs_scopes.h"
#include "storage/maildirpp.h"
#include "storage/popuser.h"

using quelt::mail::CwdScope;
using quelt::mail::DirHandle;

namespace {

constexpr size_t kPathBuffer = 4096;
constexpr int kCreateAttempts = 5;
constexpr unsigned kCreateRetryDelay = 2;
// Readers recount a maildirsize older than 15 minutes.
constexpr std::time_t kBackdate = 960;

// The temporary maildirsize: removed on destruction unless it was renamed into place.
class PendingFile {
public:
    PendingFile() = default;
    ~PendingFile() { discard(); }
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    // Creates `name` write-only, 0644, refusing an existing name and a name that does not
    // lead to the opened file; false (errno set) on failure, leaving nothing behind.
    bool create(const std::string& name)
    {
        struct stat st;
        if (::lstat(name.c_str(), &st) == 0) {
            errno = EEXIST;
            return false;
        }
        fd_.reset(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (!fd_.valid())
            return false;
        name_ = name;
        struct stat opened;
        if (::fstat(fd_.get(), &opened) != 0 || ::lstat(name.c_str(), &st) != 0 ||
            opened.st_dev != st.st_dev || opened.st_ino != st.st_ino) {
            if (errno == 0)
                errno = EEXIST;
            discard();
            return false;
        }
        if (::ftruncate(fd_.get(), 0) != 0) {
            discard();
            return false;
        }
        return true;
    }

    int fd() const { return fd_.get(); }
    const std::string& name() const { return name_; }

    // Writes all of `text`, repeating on EINTR and EAGAIN.
    bool writeAll(const std::string& text)
    {
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t n = ::write(fd_.get(), text.data() + done, text.size() - done);
            if (n < 0) {
                if (errno == EINTR || errno == EAGAIN)
                    continue;
                return false;
            }
            done += static_cast<size_t>(n);
        }
        return true;
    }

    // fsync and close; the file stays until it is renamed or discarded.
    bool commit()
    {
        const bool synced = ::fsync(fd_.get()) == 0;
        const int saved = errno;
        const bool closed = fd_.close_nothrow() == 0;
        if (!synced)
            errno = saved;
        return synced && closed;
    }

    bool renameTo(const char* target)
    {
        if (::rename(name_.c_str(), target) != 0)
            return false;
        name_.clear();
        return true;
    }

private:
    void discard()
    {
        const int saved = errno;
        fd_.reset();
        if (!name_.empty())
            ::unlink(name_.c_str());
        name_.clear();
        errno = saved;
    }

    quelt::FdOwner fd_;
    std::string name_;
};

// Prints the failure (messlog2 adds the system error) and gives the failure result.
int fail(const std::string& text)
{
    const int saved = errno;
    messlog2(0, 0, "%s", text.c_str());
    errno = saved;
    return 0;
}

// Modification time of a folder's "cur" or "new" into `newest`; false when it cannot be read.
bool folderTime(const std::string& folder, const char* sub, std::time_t& newest)
{
    const std::string path = folder.empty() ? std::string(sub) : folder + "/" + sub;
    if (path.size() >= kPathBuffer) {
        errno = 0;
        messlog2(0, 0, "Maildir subfolder '%s' name too long to fit the allowed buffer", sub);
        return false;
    }
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        messlog2(0, 0, "Maildir subfolder '%s' stat failed", sub);
        return false;
    }
    if (st.st_mtime > newest)
        newest = st.st_mtime;
    return true;
}

// True when maildirsize must be backdated: the Maildir's own folders or its listing cannot be
// read, or a folder changed after `reference` (mail arrived during the scan).
bool changedSinceScan(std::time_t reference)
{
    std::time_t newest = 0;
    bool ok = folderTime("", "cur", newest);
    ok = folderTime("", "new", newest) && ok;
    DirHandle maildir(".");
    if (!maildir.valid()) {
        messlog2(0, 0, "Unable to open Maildir folder. Has it just been removed?");
        return true;
    }
    while (struct dirent* entry = maildir.next()) {
        const char* name = entry->d_name;
        if (!is_maildirpp_folder_name(name))
            continue;
        if (entry->d_type != DT_DIR) {
            struct stat st;
            if (::fstatat(maildir.fd(), name, &st, 0) != 0 || !S_ISDIR(st.st_mode)) {
                char cwd[kPathBuffer];
                errno = 0;
                messlog2(0, 0, "Bad/unrecognized entry %s within Maildir folder %s\n", name,
                         ::getcwd(cwd, sizeof cwd) ? cwd : ".");
                continue;
            }
        }
        folderTime(name, "cur", newest);
        folderTime(name, "new", newest);
    }
    return !ok || newest > reference;
}

}  // namespace

int write_maildirpp_maildirsize(const std::string& maildir, uid_t uid, gid_t gid,
                                long long byteLimit, unsigned long long countLimit)
{
    CwdScope cwd;
    if (!cwd.remembered())
        return fail("unable to get current working directory");
    if (!cwd.enter(maildir))
        return fail("unable to change to Maildir folder " + maildir);

    char host[HOST_NAME_MAX + 1];
    if (::gethostname(host, sizeof host) != 0)
        return fail("Unable to receive hostname");
    host[HOST_NAME_MAX] = '\0';

    PendingFile file;
    for (int attempt = 1;; ++attempt) {
        char name[kPathBuffer];
        const int n = std::snprintf(name, sizeof name, "tmp/%lu.%u.%s-maildirsize",
                                    static_cast<unsigned long>(std::time(nullptr)),
                                    static_cast<unsigned>(::getpid()), host);
        if (n < 0 || static_cast<size_t>(n) >= sizeof name) {
            errno = ENAMETOOLONG;
            return fail("host name is too long to be used in filename");
        }
        if (file.create(name))
            break;
        if (attempt == kCreateAttempts) {
            errno = EAGAIN;
            return fail("Maximal allowed number of attempts to create a maildirsize file exceeded");
        }
        ::sleep(kCreateRetryDelay);
    }

    if (::fchown(file.fd(), uid, gid) != 0)
        return fail("unable to change owner of " + file.name());

    const MaildirppUsage usage = scan_maildirpp_usage();
    const auto text = format_maildirsize(byteLimit, countLimit, usage.bytes, usage.count);
    if (!text) {
        errno = EOVERFLOW;
        return fail("unable to format maildirsize contents");
    }
    if (!file.writeAll(*text))
        return fail("unable to write data to file");
    if (!file.commit())
        return fail("unable to commit written data to file");
    if (!file.renameTo("maildirsize"))
        return fail("unable to rename " + file.name() + " to maildirsize");

    if (changedSinceScan(usage.newest)) {
        struct timeval times[2];
        ::gettimeofday(&times[0], nullptr);
        times[1].tv_sec = usage.newest - kBackdate;
        times[1].tv_usec = 0;
        if (::utimes("maildirsize", times) != 0)
            return fail("unable to set the modification time of " + maildir + "/maildirsize");
    }
    if (!cwd.restore())
        return fail("unable to return to the previous working directory");
    return 1;
}

int store_maildirpp_quota_raw(const std::string& maildir, long long quota)
{
    if (quota < 0)
        quota = 0;
    else if (quota == 0)
        quota = 1;  // a zero limit would read as "no limit"
    uid_t uid;
    gid_t gid;
    errno = 0;
    if (!quelt::mail::lookupMailOwner(uid, gid))
        return fail(std::string("user ") + quelt::mail::kMailOwner + " not found");
    return write_maildirpp_maildirsize(maildir, uid, gid, quota, 0);
}
