// mailrig-deliver: Postfix's pipe transport for mailrig's mailboxes. Started with the envelope
// sender and one recipient (mailname@domain), the message on standard input; it becomes the
// mail user, works in the mailname home and carries out the home's .qmail file. Its exit status
// and its one line of output are Postfix's answer: delivered, try again later, or bounce.
#include <fcntl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <string>

#include "delivery/deliver.h"
#include "delivery/instructions.h"
#include "model/names/mailname.h"
#include "runtime/fd_owner.h"
#include "runtime/launch.h"
#include "runtime/zvt_conf.h"
#include "storage/popuser.h"

namespace dl = quelt::mail::delivery;

namespace {

// Thrown where delivery cannot go on; carries Postfix's answer.
struct Stop {
    dl::Outcome outcome;
};

[[noreturn]] void tempfail(const std::string& why)
{
    throw Stop{dl::temporaryFailure("4.3.0", why)};
}

// Root hands everything over to popuser before anything of the mailname is read; any other
// user than popuser is a wrong transport set-up, and the mail waits until it is fixed.
void becomeMailUser(uid_t& uid, gid_t& gid)
{
    if (!quelt::mail::lookupMailOwner(uid, gid))
        tempfail(std::string("the mail user ") + quelt::mail::kMailOwner + " does not exist");
    if (::geteuid() == 0 && p_setuid(quelt::mail::kMailOwner) != 0)
        tempfail(std::string("cannot become ") + quelt::mail::kMailOwner + ": " + std::strerror(errno));
    if (::getuid() != uid || ::geteuid() != uid || ::getgid() != gid || ::getegid() != gid)
        tempfail("mailrig-deliver runs as uid " + std::to_string(::geteuid()) + ", not as " + quelt::mail::kMailOwner);
    if (::setuid(0) == 0)
        tempfail("the root privileges could not be given up");
}

bool isPlainDomain(const std::string& domain)
{
    return !domain.empty() && domain.size() <= 253 && domain[0] != '.' && domain.find("..") == std::string::npos &&
           domain.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_") ==
               std::string::npos;
}

dl::Envelope envelopeOf(const std::string& sender, const std::string& recipient)
{
    const std::size_t at = recipient.rfind('@');
    if (at == std::string::npos)
        tempfail("the recipient " + recipient + " has no domain");
    dl::Envelope envelope{sender, recipient, recipient.substr(0, at), recipient.substr(at + 1), "",
                          quelt::mail::kMailOwner};
    if (!is_mailname_valid(envelope.mailname.c_str()) || !isPlainDomain(envelope.domain))
        tempfail("the recipient " + recipient + " is no mailbox name");
    envelope.home = zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX) + "/" + envelope.domain + "/" + envelope.mailname;
    return envelope;
}

// The home must be popuser's own folder: a link or someone else's folder is never entered.
quelt::FdOwner enterHome(const std::string& home, uid_t uid)
{
    quelt::FdOwner dir(::open(home.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    if (!dir.valid())
        tempfail("cannot open the mailbox home " + home + ": " + std::strerror(errno));
    if (::fstat(dir.get(), &st) != 0 || st.st_uid != uid)
        tempfail("the mailbox home " + home + " does not belong to " + quelt::mail::kMailOwner);
    if (::fchdir(dir.get()) != 0)
        tempfail("cannot enter the mailbox home " + home + ": " + std::strerror(errno));
    return dir;
}

std::string readAll(int fd, std::size_t limit, const std::string& what)
{
    std::string text;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n == 0)
            return text;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            tempfail("cannot read " + what + ": " + std::strerror(errno));
        }
        text.append(buffer, static_cast<std::size_t>(n));
        if (text.size() > limit)
            return text;
    }
}

// The home's instructions; a missing or empty file means the mailbox alone, as Postfix's own
// virtual delivery would do. A file not owned by popuser or writable by others is refused.
std::vector<dl::Instruction> readInstructions(const dl::Envelope& envelope, uid_t uid)
{
    const std::string path = envelope.home + "/.qmail";
    quelt::FdOwner file(::open(".qmail", O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.valid()) {
        if (errno == ENOENT)
            return {dl::mailboxInstruction()};
        tempfail("cannot open " + path + ": " + std::strerror(errno));
    }
    struct stat st {};
    if (::fstat(file.get(), &st) != 0 || !S_ISREG(st.st_mode))
        tempfail(path + " is not a regular file");
    if (st.st_uid != uid)
        tempfail(path + " does not belong to " + quelt::mail::kMailOwner);
    if (st.st_mode & (S_IWGRP | S_IWOTH))
        tempfail(path + " is writable by others than " + std::string(quelt::mail::kMailOwner));
    const std::string text = readAll(file.get(), dl::kMaxInstructionFile, path);
    if (text.empty())
        return {dl::mailboxInstruction()};
    try {
        return dl::parseInstructions(text);
    } catch (const dl::InstructionError& e) {
        tempfail(path + ": " + e.what());
    }
}

dl::Outcome run(int argc, char* argv[])
{
    if (argc != 3)
        tempfail("usage: mailrig-deliver SENDER RECIPIENT (the message on standard input)");
    uid_t uid = 0;
    gid_t gid = 0;
    becomeMailUser(uid, gid);
    const dl::Envelope envelope = envelopeOf(argv[1], argv[2]);
    const quelt::FdOwner home = enterHome(envelope.home, uid);
    const std::vector<dl::Instruction> instructions = readInstructions(envelope, uid);
    const std::string message = readAll(0, std::string::npos, "the message");
    return dl::deliver(envelope, instructions, message);
}

}  // namespace

int main(int argc, char* argv[])
{
    quelt::markCloseOnExecFrom(3);
    dl::Outcome outcome{0, ""};
    try {
        outcome = run(argc, argv);
    } catch (const Stop& stop) {
        outcome = stop.outcome;
    } catch (const std::exception& e) {
        outcome = dl::temporaryFailure("4.3.0", std::string("mailrig-deliver: ") + e.what());
    }
    if (!outcome.text.empty())
        std::cout << outcome.text << std::endl;
    return outcome.status;
}
