// The mail password database (SQLite): one row per mail domain and one per mail user, written
// only by mailrig and read by the mail servers' password checkers. Every operation opens its
// own connection at the path chosen in passwd_location.h and closes it before returning; all
// return 0 on success and -1 on failure, after one message in the product log (quelt_log).
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "auth/passwd_location.h"

// Password flags.
enum MailAuthFlags : int {
    kMailAuthHashed = 1,          // the panel supplied the password hashed: stored as given
    kMailAuthUserDisabled = 2,
    kMailAuthDomainDisabled = 4,
    kMailAuthNoCreateDomain = 8,  // domain lookup only
};

// The script that creates a new database.
extern const char* const kMailAuthSchema;

// A plain password (flag 1 clear) is encrypted with the key in force, then mailAuthSetRaw.
int mailAuthSet(const std::string& mailname, const std::string& domain, const std::optional<std::string>& password,
                int flags);
// Registers (replaces) the user with the password as given, in `cmusaslsecretPLAIN` with flag 1
// and in `userPassword` otherwise; creates the domain row when missing (disabled with flag 4).
int mailAuthSetRaw(const std::string& mailname, const std::string& domain,
                   const std::optional<std::string>& password, int flags);
// A non-empty password is set; an empty or absent one removes the user.
int set_postbox_passwd(const std::string& mailname, const std::string& domain,
                       const std::optional<std::string>& password, int flags);
// Copies a registration (stored password text and flags) to another address; a source that is
// not registered is no error.
int mailAuthClone(const std::string& srcMailname, const std::string& srcDomain, const std::string& dstMailname,
                  const std::string& dstDomain);
// Deletes the user; an unknown domain or user is no error.
int mailAuthRemove(const std::string& mailname, const std::string& domain);
// Renames the user within its domain; an unknown domain fails.
int mailAuthRename(const std::string& oldMailname, const std::string& newMailname, const std::string& domain);
int mailAuthRenameDomain(const std::string& oldDomain, const std::string& newDomain);
// Deletes the domain row; its users go with it through the delete trigger.
int mailAuthRemoveDomain(const std::string& domain);
// Set the domain status to 1 / 0; an unknown domain is no error.
int mailAuthDisableDomain(const std::string& domain);
int mailAuthEnableDomain(const std::string& domain);

// Selects the style, re-creates the database and a new key, and sets their owners and modes.
int mailAuthDBInitStyle(int style);
// 1 (Postfix) or 0 (qmail) from the feature report of "<PRODUCT_ROOT_D>/admin/sbin/mailrig
// --features"; -1 when it does not say.
int mailAuthDBDetectStyle();

// Receives each user: "mailname@domain", the password (decrypted, or the stored hash with flag
// 1) and the flags 1, 2 and 4. A non-zero result ends the walk and becomes its result.
using MailAuthCallback = std::function<int(const std::string& address, const std::string& password, int flags)>;
// Every user, ordered by domain and mailname.
int mailAuthIterateAll(const MailAuthCallback& callback);
// Every user of that mailname, in any domain.
int mailAuthCheckShort(const std::string& mailname, const MailAuthCallback& callback);
// The one user "mailname@domain" (split at the first "@"); -1 when it is not there or has no
// password.
int mailAuthCheck(const std::string& address, const MailAuthCallback& callback);

// Prepare and release the password cipher with the key file in force.
bool mailPasswdCipherInit();
void mailPasswdCipherCleanup();
