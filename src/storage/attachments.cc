// The attachment store of a mailbox: add, remove and list its plain files.
#include "storage/attachments.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "model/names/idn.h"
#include "model/names/name_checks.h"
#include "runtime/copy_file.h"
#include "runtime/fd_owner.h"
#include "runtime/log.h"
#include "runtime/zvt_conf.h"
#include "storage/dir_handle.h"

namespace {

constexpr const char* kStore = "@attachments";
constexpr mode_t kAttachmentMode = 0644;
constexpr long long kBlockSize = 512;

bool isPlainName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.find_first_of("/\n\r") == std::string::npos;
}

std::string mailRoot()
{
    return zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX);
}

// The ASCII form of the domain; a name libidn refuses ends the process.
std::string asciiOrExit(const std::string& domain)
{
    const auto ascii = idn_toascii(domain.c_str());
    if (!ascii) {
        errno = 0;
        messlog2(1, 0, "idn_toascii() failed: %s", idn_strerror(idn_errno));
    }
    return *ascii;
}

std::string storeOf(const std::string& mailname, const std::string& ascii)
{
    return mailRoot() + "/" + ascii + "/" + mailname + "/" + kStore;
}

std::string resolved(const std::string& path)
{
    const std::unique_ptr<char, decltype(&::free)> real(::realpath(path.c_str(), nullptr), &::free);
    return real ? std::string(real.get()) : std::string();
}

// Whether the store is where its path says, below the mail root: the mailbox owner can replace
// the domain root's or the home's entries with links, and mailrig, running as root, must not
// follow one out of the mail tree. errno is ENOENT when the store does not exist.
bool storeIsInPlace(const std::string& store, const std::string& ascii, const std::string& mailname)
{
    const std::string root = resolved(mailRoot());
    const std::string real = resolved(store);
    if (root.empty() || real.empty())
        return false;
    if (real == root + "/" + ascii + "/" + mailname + "/" + kStore)
        return true;
    errno = ELOOP;
    return false;
}

// One line of a listing.
bool printEntry(const std::string& store, const std::string& name, bool inBlocks, bool fullName)
{
    const std::string path = store + "/" + name;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        messlog2(0, 0, "stat %s failed: %s", path.c_str(), std::strerror(errno));
        return false;
    }
    if (S_ISDIR(st.st_mode))
        return true;
    const long long size = inBlocks ? static_cast<long long>(st.st_blocks) * kBlockSize : static_cast<long long>(st.st_size);
    std::printf("%s\t%lld\n", fullName ? path.c_str() : name.c_str(), size);
    return true;
}

// The names of a directory's entries but "." and "..", sorted so listings are stable.
bool entriesOf(const std::string& path, std::vector<std::string>& names, quelt::mail::DirHandle& dir)
{
    dir = quelt::mail::DirHandle(path.c_str());
    if (!dir.valid()) {
        messlog2(0, 0, "Unable to open dir %s: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    while (const struct dirent* entry = dir.next()) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return true;
}

bool closeDir(quelt::mail::DirHandle& dir)
{
    if (dir.close() == 0)
        return true;
    messlog2(0, 0, "Unable to close dir: %s\n", std::strerror(errno));
    return false;
}

}  // namespace

std::string checkedAttachmentName(const std::string& name)
{
    if (!isPlainName(name))
        throw std::invalid_argument("invalid attachment file name '" + quelt::names::printable(name) + "'");
    return name;
}

int add_attachment(const std::string& mailname, const std::string& domain, const std::string& sourceFile,
                   const std::string& attachmentName)
{
    const std::string ascii = asciiOrExit(domain);
    const std::string store = storeOf(mailname, ascii);
    const std::string path = store + "/" + attachmentName;
    auto failed = [&] {
        messlog2(0, 0, "Unable to copy the attachment file %s to %s\n", sourceFile.c_str(), path.c_str());
        return -1;
    };
    if (!isPlainName(mailname) || !isPlainName(ascii) || !isPlainName(attachmentName) ||
        !storeIsInPlace(store, ascii, mailname))
        return failed();
    // A link or special file of that name is replaced, never written through.
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode))
        ::unlink(path.c_str());
    if (copy_file(sourceFile, path) != 0)
        return failed();
    const quelt::FdOwner copy(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!copy.valid() || ::fchmod(copy.get(), kAttachmentMode) != 0)
        return failed();
    return 0;
}

int remove_attachment(const std::string& mailname, const std::string& domain, const std::string& attachmentName)
{
    const std::string ascii = asciiOrExit(domain);
    const std::string store = storeOf(mailname, ascii);
    const std::string path = store + "/" + attachmentName;
    if (!isPlainName(mailname) || !isPlainName(ascii) || !isPlainName(attachmentName)) {
        errno = EINVAL;
    } else if (storeIsInPlace(store, ascii, mailname)) {
        if (::unlink(path.c_str()) == 0 || errno == ENOENT)
            return 0;
    } else if (errno == ENOENT) {
        return 0;  // no store, so no such attachment
    }
    messlog2(0, 0, "Unable to delete the attachment file %s: %s\n", path.c_str(), std::strerror(errno));
    return -1;
}

int list_attachments(const std::string& mailname, const std::string& domain, bool inBlocks, bool fullName)
{
    const std::string ascii = asciiOrExit(domain);
    if (mailname.empty()) {
        errno = 0;
        messlog2(1, 0, "MailName empty for domain '%s'", domain.c_str());
    }
    const std::string store = storeOf(mailname, ascii);
    quelt::mail::DirHandle dir;
    std::vector<std::string> names;
    if (!entriesOf(store, names, dir))
        return -1;
    for (const std::string& name : names)
        if (!printEntry(store, name, inBlocks, fullName))
            return -1;
    std::fflush(stdout);
    return closeDir(dir) ? 0 : -1;
}

int list_all_attachments(const std::string& domain, bool inBlocks, bool fullName)
{
    const std::string domainRoot = mailRoot() + "/" + asciiOrExit(domain);
    quelt::mail::DirHandle dir;
    std::vector<std::string> names;
    if (!entriesOf(domainRoot, names, dir))
        return -1;
    for (const std::string& name : names) {
        struct stat st;
        if (::lstat((domainRoot + "/" + name).c_str(), &st) == 0 && S_ISDIR(st.st_mode))
            list_attachments(name, domain, inBlocks, fullName);
    }
    return closeDir(dir) ? 0 : -1;
}
