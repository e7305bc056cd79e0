// Where mailbox trees live and how they are created, renamed, set aside and removed.
#pragma once

#include <sys/types.h>

#include <string>

#include <boost/filesystem/path.hpp>

namespace quelt::mail {

// What a manager does with a tree it no longer needs.
enum class OnRemoval { Remove = 1, Backup = 2 };

// Renames `path` in its own directory to "<name>.QueltSaved.<inode>" and sets `newPath` to it.
// True on success and when `path` does not exist (then `newPath` is empty); false, errno set,
// when its status cannot be read. A failed rename throws the path library's error.
bool backupRename(const boost::filesystem::path& path, boost::filesystem::path& newPath);

// Mailbox trees under the mail root (QUELT_MAILNAMES_D). One shared instance, which is also the
// MaildirPPManager instance. Ownership and mode failures throw FSError; creation, rename and
// removal failures throw the path library's filesystem_error.
class MaildirManager {
public:
    // The shared instance, with the popuser ids refreshed.
    static MaildirManager& getInstance();
    // Looks popuser up; throws quelt::SystemError "user popuser not found" when missing.
    void init();

    static boost::filesystem::path getMailRoot();
    static boost::filesystem::path getDomainRelativeRoot(const std::string& domain);
    static boost::filesystem::path getMailnameRelativeHome(const std::string& domain,
                                                           const std::string& mailname);
    // The two paths below throw FSError "path outside its root" unless the domain and the
    // mailname are each exactly one entry of the directory above them.
    static boost::filesystem::path getDomainRoot(const std::string& domain);
    static boost::filesystem::path getMailnameHome(const std::string& domain,
                                                   const std::string& mailname);

    // The domain root, mode 0750, owned by popuser; missing parents keep the process owner.
    void createDomainRoot(const std::string& domain);
    // The home and its Maildir tree, each 0700 and owned by popuser; an existing home is
    // repaired (missing entries added, owners and modes reset).
    void createMailnameHome(const std::string& domain, const std::string& mailname);

    // One rename each; the target must not exist.
    void renameMailnameHome(const std::string& domain, const std::string& oldMailname,
                            const std::string& newMailname);
    void renameDomainRoot(const std::string& oldDomain, const std::string& newDomain);

    // Set the tree aside under its backup name; throw FSError "rename" when its status
    // cannot be read. A missing tree is not an error.
    void backupMailnameHome(const std::string& domain, const std::string& mailname);
    void backupDomainRoot(const std::string& domain);

    // Recursive deletion; a missing tree is not an error.
    void removeMailnameHome(const std::string& domain, const std::string& mailname);
    // Sets the root aside first, so it leaves its name in one step, then deletes it.
    void removeDomainRoot(const std::string& domain);

    uid_t ownerUid() const { return uid_; }
    gid_t ownerGid() const { return gid_; }

protected:
    MaildirManager() = default;
    ~MaildirManager() = default;
    MaildirManager(const MaildirManager&) = delete;
    MaildirManager& operator=(const MaildirManager&) = delete;

    // Gives `path` to popuser with `mode` (EINTR retried); throws FSError "chown"/"chmod".
    void takeOver(const boost::filesystem::path& path, mode_t mode) const;

private:
    uid_t uid_ = 0;
    gid_t gid_ = 0;
};

}  // namespace quelt::mail
