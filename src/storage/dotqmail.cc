// .qmail delivery files: reset, mailbox delivery on and off, forwarding lines, paths.
#include "storage/dotqmail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "runtime/errors.h"
#include "runtime/fd_owner.h"
#include "runtime/line_file.h"
#include "runtime/log.h"
#include "runtime/zvt_conf.h"
#include "model/names/idn.h"
#include "model/names/mailname.h"
#include "storage/popuser.h"

namespace {

constexpr mode_t kDotQMailMode = 0600;

// Gives the file to popuser with mode 0600.
int takeOver(const std::string& path)
{
    uid_t uid;
    gid_t gid;
    if (!quelt::mail::lookupMailOwner(uid, gid)) {
        messlog2(0, 0, "user %s not found", quelt::mail::kMailOwner);
        return -1;
    }
    if (::chown(path.c_str(), uid, gid) != 0) {
        messlog2(0, 0, "Unable to change owner of %s", path.c_str());
        return -1;
    }
    if (::chmod(path.c_str(), kDotQMailMode) != 0) {
        messlog2(0, 0, "Unable to change mode of %s", path.c_str());
        return -1;
    }
    return 0;
}

// The address with an ASCII domain part, or nothing after printing why.
bool forwardLine(const std::string& address, std::string& line)
{
    const auto ascii = idn_email_toascii(address.c_str());
    if (!ascii) {
        errno = 0;
        messlog2(0, 0, "idn_email_toascii(%s) failed: %s", address.c_str(), idn_strerror(idn_errno));
        return false;
    }
    line = "&" + *ascii;
    return true;
}

int removeLine(const std::string& path, const char* line)
{
    return file_str(path, line, FILE_STR_REMOVE, 0) == 0 ? 0 : -1;
}

int addLine(const std::string& path, const std::string& line)
{
    if (file_str(path, line, FILE_STR_ADD, FILE_STR_BACK) != 0) {
        messlog2(0, 0, "Unable to add string to %s file.", path.c_str());
        return -1;
    }
    return 0;
}

// "<mail root>/<ASCII domain>/<mailname><suffix>" into `path` when it fits `size`.
int buildPath(std::string& path, size_t size, const std::string& mailname,
              const std::string& domain, const char* suffix, const char* what)
{
    if (mailname.empty() || domain.empty() || !is_mailname_valid(mailname.c_str())) {
        errno = 0;
        messlog2(0, 0, "empty mailname or maildomain");
        return -1;
    }
    const auto asciiDomain = idn_toascii(domain.c_str());
    if (!asciiDomain) {
        errno = 0;
        messlog2(0, 0, "idn_toascii(%s) failed: %s", domain.c_str(), idn_strerror(idn_errno));
        return -1;
    }
    std::string built = zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX) + "/" + *asciiDomain + "/" +
                        mailname + suffix;
    if (built.size() + 1 > size) {
        errno = 0;
        messlog2(0, 0,
                 "Either domain name '%s' or mailname '%s' are too long to store %s in the "
                 "provided buffer",
                 domain.c_str(), mailname.c_str(), what);
        return -1;
    }
    path = std::move(built);
    return 0;
}

}  // namespace

int dotqmail_reset(const std::string& path)
{
    quelt::FdOwner fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kDotQMailMode));
    if (!fd.valid()) {
        messlog2(0, 0, "Unable to open %s: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    const std::string text = std::string(kDotQMailResetLine) + "\n";
    const ssize_t written = ::write(fd.get(), text.data(), text.size());
    const int writeErrno = errno;
    const bool closed = fd.close_nothrow() == 0;
    if (written != static_cast<ssize_t>(text.size()) || !closed) {
        const int code = written < 0 ? writeErrno : (closed ? ENOSPC : errno);
        ::unlink(path.c_str());
        errno = code;
        messlog2(0, 0, "Unable to write to %s: %s", path.c_str(), std::strerror(code));
        return -1;
    }
    return takeOver(path);
}

int dotqmail_add_delivery(const std::string& path)
{
    // The removals fail harmlessly on a file that does not exist yet.
    removeLine(path, kDotQMailLegacyLine);
    removeLine(path, kDotQMailDeliveryLine);
    if (addLine(path, kDotQMailDeliveryLine) != 0)
        return -1;
    return takeOver(path);
}

int dotqmail_remove_delivery(const std::string& path)
{
    if (removeLine(path, kDotQMailLegacyLine) != 0) {
        messlog2(0, 0, "Unable to remove string from %s file", path.c_str());
        return -1;
    }
    removeLine(path, kDotQMailDeliveryLine);
    return takeOver(path);
}

int dotqmail_add_forward(const std::string& path, const std::string& address)
{
    std::string line;
    if (!forwardLine(address, line))
        return -1;
    removeLine(path, line.c_str());
    if (addLine(path, line) != 0)
        return -1;
    return takeOver(path);
}

int dotqmail_remove_forward(const std::string& path, const std::string& address)
{
    std::string line;
    if (!forwardLine(address, line))
        return -1;
    if (removeLine(path, line.c_str()) != 0) {
        messlog2(0, 0, "Unable to remove string from %s file.", path.c_str());
        return -1;
    }
    return takeOver(path);
}

int get_dotqmail_path(std::string& path, size_t size, const std::string& mailname,
                      const std::string& domain)
{
    return buildPath(path, size, mailname, domain, "/.qmail", ".qmail path");
}

int get_mailhome_path(std::string& path, size_t size, const std::string& mailname,
                      const std::string& domain)
{
    return buildPath(path, size, mailname, domain, "", "mailname home path");
}

namespace quelt::mail {

void DotQMailManager::fail() const
{
    throwSystemError("unable to modify " + path_, 0);
}

void DotQMailManager::reset()
{
    if (dotqmail_reset(path_) != 0)
        fail();
}

void DotQMailManager::enableDelivery()
{
    if (dotqmail_add_delivery(path_) != 0)
        fail();
}

void DotQMailManager::disableDelivery()
{
    if (dotqmail_remove_delivery(path_) != 0)
        fail();
}

void DotQMailManager::addRedirect(const std::string& address, Position)
{
    if (dotqmail_add_forward(path_, address) != 0)
        fail();
}

void DotQMailManager::removeRedirect(const std::string& address)
{
    if (dotqmail_remove_forward(path_, address) != 0)
        fail();
}

}  // namespace quelt::mail
