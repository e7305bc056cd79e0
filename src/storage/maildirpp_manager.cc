// The shared mailbox-tree manager and its Maildir++ quota operations.
#include "storage/maildirpp_manager.h"

#include <sys/stat.h>

#include <cerrno>

#include "runtime/uerr.h"
#include "storage/fs_error.h"
#include "storage/fs_scopes.h"
#include "storage/maildirpp.h"
#include "storage/mbox_quota.h"

namespace fs = boost::filesystem;

namespace quelt::mail {

namespace {

// The domain quota functions report success as 1; anything else throws FSError(what) with the
// domain-relative root and error number 0.
void requireDomainDone(int result, const char* what, const std::string& domain)
{
    if (result != 1)
        throw FSError(what, MaildirManager::getDomainRelativeRoot(domain), 0);
}

}  // namespace

MaildirManager& MaildirManager::getInstance()
{
    return MaildirPPManager::getInstance();
}

MaildirPPManager& MaildirPPManager::getInstance()
{
    static MaildirPPManager instance;
    instance.init();
    return instance;
}

void MaildirPPManager::setMailboxQuota(const std::string& domain, const std::string& mailname,
                                       long long quota)
{
    const fs::path home = getMailnameHome(domain, mailname);
    const fs::path maildir = fs::path(home.string() + "/Maildir");
    CwdScope cwd;
    if (!cwd.remembered())
        throw FSError("getcwd", home, errno);
    if (!cwd.enter(home.string()))
        throw FSError("chdir", home, errno);

    long long limit = 0;  // unlimited
    if (quota >= 0) {
        limit = quota;
        struct stat st;
        if (::stat("@attachments", &st) == 0 && S_ISDIR(st.st_mode)) {
            const long long attachments = get_dir_size("@attachments", false);
            if (attachments < 0)
                throw FSError("create maildirsize", maildir, 0);
            if (attachments > quota) {
                quelt::uerr << "WARNING: @attachments directory is big enough to disable delivery!"
                            << std::endl;
                limit = 1;
            } else {
                limit = quota - attachments;
            }
        }
        if (limit == 0)
            limit = 1;  // a zero limit would read as "no limit"
    }
    if (!write_maildirpp_maildirsize("Maildir", ownerUid(), ownerGid(), limit, 0))
        throw FSError("create maildirsize", maildir, 0);
}

void MaildirPPManager::removeMailboxQuota(const std::string& domain, const std::string& mailname)
{
    if (rm_mbox_quota(domain, mailname) != 1)
        throw FSError("unable to remove quota", getMailnameHome(domain, mailname), 0);
}

void MaildirPPManager::setDomainQuota(const std::string& domain, long long quota)
{
    requireDomainDone(store_domain_quota(domain, quota), "unable to store domain quota", domain);
}

void MaildirPPManager::removeDomainQuota(const std::string& domain)
{
    requireDomainDone(rm_domain_quota(domain), "unable to remove domain quota", domain);
}

void MaildirPPManager::setDefaultMailboxQuota(const std::string& domain, long long quota)
{
    requireDomainDone(store_default_mbox_quota(domain, quota), "unable to store default mbox quota", domain);
}

void MaildirPPManager::removeDefaultMailboxQuota(const std::string& domain)
{
    requireDomainDone(rm_default_mbox_quota(domain), "unable to remove default mbox quota", domain);
}

}  // namespace quelt::mail
