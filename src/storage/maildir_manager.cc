// Mailbox trees: paths, creation with owners and modes, renames, backups and removal.
#include "storage/maildir_manager.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <boost/filesystem/operations.hpp>

#include "runtime/errors.h"
#include "runtime/zvt_conf.h"
#include "storage/fs_error.h"
#include "storage/fs_scopes.h"
#include "storage/popuser.h"

namespace fs = boost::filesystem;

namespace quelt::mail {

namespace {

// The entries of a mailname home below the home itself, in creation order.
const char* const kHomeEntries[] = {
    "Maildir",       "Maildir/tmp",       "Maildir/new",       "Maildir/cur", "Maildir/.Spam",
    "Maildir/.Spam/tmp", "Maildir/.Spam/new", "Maildir/.Spam/cur", "@attachments",
};

constexpr mode_t kCreationMask = 077;
constexpr mode_t kDomainRootMode = 0750;
constexpr mode_t kHomeMode = 0700;

fs::path joined(const fs::path& base, const std::string& name)
{
    return fs::path(base.string() + "/" + name);
}

// `base`/`name` where `name` must be one entry of `base`: a domain or mailname that slipped past
// the command boundary's checks still cannot make a tree operation reach outside its root, nor
// hit the root itself.
fs::path inside(const fs::path& base, const std::string& name)
{
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos)
        throw FSError("path outside its root", joined(base, name), base, EINVAL);
    return joined(base, name);
}

// rename(2) that never replaces an existing target (an empty directory would be replaced).
void renameNoReplace(const fs::path& from, const fs::path& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return;
    int code = errno;
    if (code == EINVAL || code == ENOSYS) {
        // A file system without the flag: check, then rename.
        struct stat st;
        if (::lstat(to.c_str(), &st) == 0)
            code = EEXIST;
        else if (::rename(from.c_str(), to.c_str()) == 0)
            return;
        else
            code = errno;
    }
    throw fs::filesystem_error("rename", from, to,
                               boost::system::error_code(code, boost::system::system_category()));
}

}  // namespace

bool backupRename(const fs::path& path, fs::path& newPath)
{
    struct stat st;
    int rc;
    do {
        rc = ::stat(path.c_str(), &st);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            newPath.clear();
            return true;
        }
        return false;
    }
    newPath = fs::path(path.string() + ".QueltSaved." + std::to_string(st.st_ino));
    renameNoReplace(path, newPath);
    return true;
}

void MaildirManager::init()
{
    uid_t uid;
    gid_t gid;
    errno = 0;
    if (!lookupMailOwner(uid, gid))
        throw SystemError(std::string("user ") + kMailOwner + " not found", errno);
    uid_ = uid;
    gid_ = gid;
}

fs::path MaildirManager::getMailRoot()
{
    return fs::path(zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX));
}

fs::path MaildirManager::getDomainRelativeRoot(const std::string& domain)
{
    return fs::path(domain);
}

fs::path MaildirManager::getMailnameRelativeHome(const std::string& domain,
                                                 const std::string& mailname)
{
    return fs::path(domain + "/" + mailname);
}

fs::path MaildirManager::getDomainRoot(const std::string& domain)
{
    return inside(getMailRoot(), domain);
}

fs::path MaildirManager::getMailnameHome(const std::string& domain, const std::string& mailname)
{
    return inside(getDomainRoot(domain), mailname);
}

void MaildirManager::takeOver(const fs::path& path, mode_t mode) const
{
    int rc;
    do {
        rc = ::chown(path.c_str(), uid_, gid_);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0)
        throw FSError("chown", path, errno);
    do {
        rc = ::chmod(path.c_str(), mode);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0)
        throw FSError("chmod", path, errno);
}

void MaildirManager::createDomainRoot(const std::string& domain)
{
    const fs::path root = getDomainRoot(domain);
    UmaskScope mask(kCreationMask);
    fs::create_directories(root);
    takeOver(root, kDomainRootMode);
}

void MaildirManager::createMailnameHome(const std::string& domain, const std::string& mailname)
{
    const fs::path home = getMailnameHome(domain, mailname);
    UmaskScope mask(kCreationMask);
    fs::create_directories(home);
    takeOver(home, kHomeMode);
    for (const char* entry : kHomeEntries) {
        const fs::path path = joined(home, entry);
        fs::create_directory(path);
        takeOver(path, kHomeMode);
    }
}

void MaildirManager::renameMailnameHome(const std::string& domain, const std::string& oldMailname,
                                        const std::string& newMailname)
{
    renameNoReplace(getMailnameHome(domain, oldMailname), getMailnameHome(domain, newMailname));
}

void MaildirManager::renameDomainRoot(const std::string& oldDomain, const std::string& newDomain)
{
    renameNoReplace(getDomainRoot(oldDomain), getDomainRoot(newDomain));
}

void MaildirManager::backupMailnameHome(const std::string& domain, const std::string& mailname)
{
    const fs::path home = getMailnameHome(domain, mailname);
    fs::path saved;
    if (!backupRename(home, saved))
        throw FSError("rename", home, saved, errno);
}

void MaildirManager::backupDomainRoot(const std::string& domain)
{
    const fs::path root = getDomainRoot(domain);
    fs::path saved;
    if (!backupRename(root, saved))
        throw FSError("rename", root, saved, errno);
}

void MaildirManager::removeMailnameHome(const std::string& domain, const std::string& mailname)
{
    fs::remove_all(getMailnameHome(domain, mailname));
}

void MaildirManager::removeDomainRoot(const std::string& domain)
{
    const fs::path root = getDomainRoot(domain);
    fs::path saved;
    bool setAside = false;
    try {
        setAside = backupRename(root, saved);
    } catch (const fs::filesystem_error&) {
        setAside = false;
    }
    if (!setAside) {
        fs::remove_all(root);
        return;
    }
    if (!saved.empty())
        fs::remove_all(saved);
}

}  // namespace quelt::mail
