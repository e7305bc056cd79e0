// Writing operations of the mail password database.
#include "auth/passwd_db.h"

#include "auth/cipher.h"
#include "auth/passwd_db_session.h"

using namespace quelt::mail::authdb;
using quelt::sqlite::Database;
using quelt::sqlite::Statement;

namespace {

struct DomainId {
    enum Status { Found, Missing, Failed } status;
    sqlite3_int64 id;
};

// The id of the domain row; a missing row is created unless flag 8 is given (disabled with
// flag 4).
DomainId lookupDomainId(const Database& db, const std::string& domain, int flags)
{
    const std::string select = "SELECT id FROM domains WHERE name=?";
    Statement query;
    if (!prepareStatement(db, query, select))
        return {DomainId::Failed, 0};
    if (!bound(query.bindText(1, domain), db,
               "Unable to bind parameter domain name '%s' to  SQL statement for query '%s': %s", domain.c_str(),
               select.c_str()))
        return {DomainId::Failed, 0};
    const int rc = query.step();
    if (rc == SQLITE_ROW)
        return {DomainId::Found, sqlite3_column_int64(query.get(), 0)};
    if (rc != SQLITE_DONE) {
        quelt_log(LOG_ERR, "Unable to execute the domain selection query: %s", db.errorText());
        return {DomainId::Failed, 0};
    }
    if (flags & kMailAuthNoCreateDomain)
        return {DomainId::Missing, 0};

    const std::string insert = "INSERT INTO domains (name, status) VALUES(?, ?)";
    const int status = (flags & kMailAuthDomainDisabled) ? 1 : 0;
    Statement create;
    if (!prepareStatement(db, create, insert))
        return {DomainId::Failed, 0};
    if (!bound(create.bindText(1, domain), db,
               "Unable to bind parameter domain name '%s' to  SQL statement for query '%s': %s", domain.c_str(),
               insert.c_str()) ||
        !bound(create.bindInt(2, status), db,
               "Unable to bind parameter status '%d' for domain '%s' to SQL statement for query '%s': %s", status,
               domain.c_str(), insert.c_str()))
        return {DomainId::Failed, 0};
    if (create.step() != SQLITE_DONE) {
        quelt_log(LOG_ERR, "Unable to execute the mail domain authentication registration query: %s",
                  db.errorText());
        return {DomainId::Failed, 0};
    }
    return {DomainId::Found, sqlite3_last_insert_rowid(db.get())};
}

// What mailAuthClone copies: the stored password text and the flags 1, 2 and 4.
struct PasswordRecord {
    std::string mailname;
    std::optional<std::string> password;
    int flags = 0;
};

// 1 with the record filled, 0 when the address is not registered, -1 on failure.
int readRegistration(const std::string& mailname, const std::string& domain, PasswordRecord& record)
{
    Database db;
    if (!openDatabase(db, Access::ReadOnly))
        return -1;
    const std::string domainSql = "SELECT id, status FROM domains WHERE name=?";
    Statement domainQuery;
    if (!prepareStatement(db, domainQuery, domainSql))
        return -1;
    if (!bound(domainQuery.bindText(1, domain), db, "Unable to bind parameter domain id for: %s: %s",
               domain.c_str()))
        return -1;
    const int domainRc = domainQuery.step();
    if (domainRc == SQLITE_DONE)
        return 0;
    if (domainRc != SQLITE_ROW) {
        quelt_log(LOG_ERR, "Unable to get domain id: %s", db.errorText());
        quelt_log(LOG_ERR, "Unable to get mail domain id for: %s", domain.c_str());
        return -1;
    }
    const sqlite3_int64 domainId = sqlite3_column_int64(domainQuery.get(), 0);
    const bool domainDisabled = sqlite3_column_int(domainQuery.get(), 1) != 0;

    const std::string userSql =
        "SELECT name, userPassword, cmusaslsecretPLAIN, status FROM users WHERE dom_id=? AND name=?";
    Statement userQuery;
    if (!prepareStatement(db, userQuery, userSql))
        return -1;
    if (!bound(userQuery.bindInt64(1, domainId), db, "Unable to bind parameter bind domain id for: %s: %s",
               domain.c_str()) ||
        !bound(userQuery.bindText(2, mailname), db, "Unable to bind parameter bind mailname %s: %s",
               mailname.c_str()))
        return -1;
    const int userRc = userQuery.step();
    if (userRc == SQLITE_DONE)
        return 0;
    if (userRc != SQLITE_ROW) {
        quelt_log(LOG_ERR, "Unable to get passwd for mailname: %s: %s", mailname.c_str(), db.errorText());
        return -1;
    }
    const char* name = userQuery.columnText(0);
    record.mailname = name ? name : "";
    record.flags = domainDisabled ? kMailAuthDomainDisabled : 0;
    if (sqlite3_column_int(userQuery.get(), 3) != 0)
        record.flags |= kMailAuthUserDisabled;
    if (const char* hashed = userQuery.columnText(2)) {
        record.flags |= kMailAuthHashed;
        record.password = hashed;
    } else if (const char* encrypted = userQuery.columnText(1)) {
        record.password = encrypted;
    }
    return 1;
}

// Sets the status of the domain row; an unknown domain changes nothing.
int domainStatus(const std::string& domain, int status)
{
    Database db;
    if (!openDatabase(db, Access::ReadWrite))
        return -1;
    const std::string sql = "UPDATE domains SET status=? WHERE name=?";
    Statement update;
    if (!prepareStatement(db, update, sql))
        return -1;
    if (!bound(update.bindInt(1, status), db, "Unable to bind parameter status %d to  SQL statement for query '%s': %s",
               status, sql.c_str()) ||
        !bound(update.bindText(2, domain), db,
               "Unable to bind parameter domain name '%s' to  SQL statement for query '%s': %s", domain.c_str(),
               sql.c_str()))
        return -1;
    if (!executed(update, db, sql, "Unable to execute the mail domain authorization status change query: %s: %s"))
        return -1;
    return 0;
}

}  // namespace

const char* const kMailAuthSchema =
    "BEGIN TRANSACTION;"
    "CREATE TABLE domains (  id     INTEGER PRIMARY KEY AUTOINCREMENT, name   VARCHAR(255) UNIQUE, status INTEGER "
    "NOT NULL DEFAULT 0);"
    "CREATE INDEX domains_name ON domains(name);"
    "CREATE TRIGGER fkd_users_domains_id  BEFORE DELETE ON domains  FOR EACH ROW BEGIN    DELETE FROM users WHERE "
    "dom_id = OLD.id;  END;"
    "CREATE TABLE users(  id           INTEGER PRIMARY KEY AUTOINCREMENT, dom_id       INTEGER NOT NULL, name     "
    "    VARCHAR(255) NOT NULL, userPassword VARCHAR(255), cmusaslsecretPLAIN VARCHAR(255), status INT NOT NULL "
    "DEFAULT 0, UNIQUE(name, dom_id));"
    "CREATE INDEX users_name ON users(name);"
    "CREATE INDEX users_dom_id ON users(dom_id);"
    "CREATE TRIGGER fki_users_domains_id  BEFORE INSERT ON users  FOR EACH ROW BEGIN    SELECT RAISE(ROLLBACK, "
    "'insert on table \"users\" violates foreign key constraint \"fk_domains_id\"')    WHERE (SELECT id FROM domains "
    "WHERE id = NEW.dom_id) IS NULL;  END;"
    "CREATE TRIGGER fku_users_domains_id  BEFORE UPDATE ON users  FOR EACH ROW BEGIN    SELECT RAISE(ROLLBACK, "
    "'update on table \"users\" violates foreign key constraint \"fk_domains_id\"')    WHERE (SELECT id FROM domains "
    "WHERE id = NEW.dom_id) IS NULL;  END;"
    "COMMIT;";

int mailAuthSetRaw(const std::string& mailname, const std::string& domain,
                   const std::optional<std::string>& password, int flags)
{
    Database db;
    if (!openDatabase(db, Access::ReadWrite))
        return -1;
    const DomainId domainId = lookupDomainId(db, domain, flags & kMailAuthDomainDisabled);
    if (domainId.status != DomainId::Found) {
        quelt_log(LOG_ERR, "No such domain '%s' in the mail authentication DB", domain.c_str());
        return -1;
    }
    const std::string sql = (flags & kMailAuthHashed)
                                ? "INSERT OR REPLACE INTO users (name, cmusaslsecretPLAIN, status, dom_id) VALUES (?, ?, ?, ?)"
                                : "INSERT OR REPLACE INTO users (name, userPassword, status, dom_id) VALUES (?, ?, ?, ?)";
    Statement insert;
    if (!prepareStatement(db, insert, sql))
        return -1;
    const int status = (flags & kMailAuthUserDisabled) ? 1 : 0;
    if (!bound(insert.bindText(1, mailname), db,
               "Unable to bind parameter mailname '%s' to SQL statement for query '%s': %s", mailname.c_str(),
               sql.c_str()) ||
        !bound(insert.bindText(2, password ? password->c_str() : nullptr), db,
               "Unable to bind parameter password for mail address '%s@%s' to SQL statement for query '%s': %s",
               mailname.c_str(), domain.c_str(), sql.c_str()) ||
        !bound(insert.bindInt(3, status), db,
               "Unable to bind parameter status for mail address '%s@%s' to  SQL statement for query '%s': %s",
               mailname.c_str(), domain.c_str(), sql.c_str()) ||
        !bound(insert.bindInt64(4, domainId.id), db,
               "Unable to bind parameter domain ID for mail address '%s@%s' to  SQL statement for query '%s': %s",
               mailname.c_str(), domain.c_str(), sql.c_str()))
        return -1;
    if (!executed(insert, db, sql, "Unable to execute the mail authorization registration query: %s: %s"))
        return -1;
    return 0;
}

int mailAuthSet(const std::string& mailname, const std::string& domain, const std::optional<std::string>& password,
                int flags)
{
    if (!password || (flags & kMailAuthHashed))
        return mailAuthSetRaw(mailname, domain, password, flags);
    const auto encrypted = passwordCipher(CipherOp::Encrypt, mailname, domain, *password);
    if (!encrypted)
        return -1;
    return mailAuthSetRaw(mailname, domain, encrypted, flags);
}

int set_postbox_passwd(const std::string& mailname, const std::string& domain,
                       const std::optional<std::string>& password, int flags)
{
    if (password && !password->empty())
        return mailAuthSet(mailname, domain, password, flags);
    return mailAuthRemove(mailname, domain);
}

int mailAuthClone(const std::string& srcMailname, const std::string& srcDomain, const std::string& dstMailname,
                  const std::string& dstDomain)
{
    PasswordRecord record;
    const int found = readRegistration(srcMailname, srcDomain, record);
    if (found < 0) {
        quelt_log(LOG_ERR, "Unable to get users list from MTA password database");
        return -1;
    }
    if (found == 0)
        return 0;
    return mailAuthSetRaw(dstMailname, dstDomain, record.password, record.flags);
}

int mailAuthRemove(const std::string& mailname, const std::string& domain)
{
    Database db;
    if (!openDatabase(db, Access::ReadWrite))
        return -1;
    const DomainId domainId = lookupDomainId(db, domain, kMailAuthNoCreateDomain);
    if (domainId.status == DomainId::Missing)
        return 0;
    if (domainId.status == DomainId::Failed)
        return -1;
    const std::string sql = "DELETE FROM users WHERE name=? AND dom_id=?";
    Statement remove;
    if (!prepareStatement(db, remove, sql))
        return -1;
    if (!bound(remove.bindText(1, mailname), db,
               "Unable to bind parameter mailname '%s' to  SQL statement for query '%s': %s", mailname.c_str(),
               sql.c_str()) ||
        !bound(remove.bindInt64(2, domainId.id), db,
               "Unable to bind parameter domain ID for mail address '%s@%s' to  SQL statement for query '%s': %s",
               mailname.c_str(), domain.c_str(), sql.c_str()))
        return -1;
    if (!executed(remove, db, sql, "Unable to execute the mail authorization removal query: %s: %s"))
        return -1;
    return 0;
}

int mailAuthRename(const std::string& oldMailname, const std::string& newMailname, const std::string& domain)
{
    Database db;
    if (!openDatabase(db, Access::ReadWrite))
        return -1;
    const DomainId domainId = lookupDomainId(db, domain, kMailAuthNoCreateDomain);
    if (domainId.status != DomainId::Found) {
        quelt_log(LOG_ERR, "No such domain '%s' in the mail authentication DB", domain.c_str());
        return -1;
    }
    const std::string sql = "UPDATE users SET name=? WHERE name=? AND dom_id=?";
    Statement rename;
    if (!prepareStatement(db, rename, sql))
        return -1;
    if (!bound(rename.bindText(1, newMailname), db,
               "Unable to bind parameter new mailname '%s' to  SQL statement for query '%s': %s",
               newMailname.c_str(), sql.c_str()) ||
        !bound(rename.bindText(2, oldMailname), db,
               "Unable to bind parameter old mailname '%s' to  SQL statement for query '%s': %s",
               oldMailname.c_str(), sql.c_str()) ||
        !bound(rename.bindInt64(3, domainId.id), db,
               "Unable to bind parameter domain ID for mail address '%s@%s' to  SQL statement for query '%s': %s",
               oldMailname.c_str(), domain.c_str(), sql.c_str()))
        return -1;
    if (!executed(rename, db, sql, "Unable to execute the mail authorization renaming query: %s: %s"))
        return -1;
    return 0;
}

int mailAuthRenameDomain(const std::string& oldDomain, const std::string& newDomain)
{
    Database db;
    if (!openDatabase(db, Access::ReadWrite))
        return -1;
    const std::string sql = "UPDATE domains SET name=? WHERE name=?";
    Statement rename;
    if (!prepareStatement(db, rename, sql))
        return -1;
    if (!bound(rename.bindText(1, newDomain), db,
               "Unable to bind parameter new domain name '%s' to SQL statement for query '%s': %s",
               newDomain.c_str(), sql.c_str()) ||
        !bound(rename.bindText(2, oldDomain), db,
               "Unable to bind parameter old domain name '%s' to SQL statement for query '%s': %s",
               oldDomain.c_str(), sql.c_str()))
        return -1;
    if (!executed(rename, db, sql, "Unable to execute the mail domain authorization name change query: %s: %s"))
        return -1;
    return 0;
}

int mailAuthRemoveDomain(const std::string& domain)
{
    Database db;
    if (!openDatabase(db, Access::ReadWrite))
        return -1;
    const std::string sql = "DELETE FROM domains WHERE name=?";
    Statement remove;
    if (!prepareStatement(db, remove, sql))
        return -1;
    if (!bound(remove.bindText(1, domain), db,
               "Unable to bind parameter domain name '%s' to SQL statement for query '%s': %s", domain.c_str(),
               sql.c_str()))
        return -1;
    if (!executed(remove, db, sql, "Unable to execute the domain mail authorization removal query: %s: %s"))
        return -1;
    return 0;
}

int mailAuthDisableDomain(const std::string& domain)
{
    return domainStatus(domain, 1);
}

int mailAuthEnableDomain(const std::string& domain)
{
    return domainStatus(domain, 0);
}

bool mailPasswdCipherInit()
{
    return mail_aes_init(mailAuthKeyPath());
}

void mailPasswdCipherCleanup()
{
    mail_aes_cleanup();
}
