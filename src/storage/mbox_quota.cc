// Mailbox quotas addressed by domain and mailname, and mailbox size.
#include "storage/mbox_quota.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "runtime/log.h"
#include "runtime/zvt_conf.h"
#include "auth/mysql_connection.h"
#include "auth/panel_db.h"
#include "model/names/idn.h"
#include "storage/fs_scopes.h"
#include "storage/maildirpp.h"

namespace {

constexpr size_t kPathBuffer = 4096;

// The domain in ASCII form, or nothing after printing why.
bool asciiDomain(const std::string& domain, std::string& ascii, int status)
{
    const auto converted = idn_toascii(domain.c_str());
    if (!converted) {
        errno = 0;
        messlog2(status, 0, "idn_toascii(%s) failed: %s", domain.c_str(), idn_strerror(idn_errno));
        return false;
    }
    ascii = *converted;
    return true;
}

// The domain in ASCII form escaped for a query on `db`, or nothing after printing why.
bool escapedDomain(MYSQL* db, const std::string& domain, std::string& escaped)
{
    const auto converted = mysql_escape_mail_entity(db, domain);
    if (!converted) {
        errno = 0;
        messlog2(0, 0, "idn_toascii(%s) failed: %s", domain.c_str(), idn_strerror(idn_errno));
        return false;
    }
    escaped = *converted;
    return true;
}

// A whole signed 64-bit number, or nothing.
std::optional<long long> quotaValue(const std::string& text)
{
    if (text.empty())
        return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 10);
    if (errno == ERANGE || *end != '\0')
        return std::nullopt;
    return value;
}

MysqlHandle connectPanel()
{
    MysqlHandle db = db_connect();
    if (!db) {
        errno = 0;
        messlog2(0, 0, "unable to connect to MySQL");
    }
    return db;
}

}  // namespace

int store_mbox_quota(const std::string& domain, const std::string& mailname, long long quota)
{
    std::string ascii;
    if (!asciiDomain(domain, ascii, 0))
        return 0;
    const std::string home =
        zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX) + "/" + ascii + "/" + mailname;
    if (home.size() >= kPathBuffer) {
        errno = 0;
        messlog2(0, 0, "domain and/or user name too long to be stored on the filesystem");
        return 0;
    }
    quelt::mail::CwdScope cwd;
    if (!cwd.remembered()) {
        messlog2(0, 0, "unable to get current working directory");
        return 0;
    }
    if (!cwd.enter(home)) {
        messlog2(0, 0, "unable to change to mbox folder %s: %s", home.c_str(), std::strerror(errno));
        return 0;
    }
    struct stat st;
    if (quota >= 0 && ::lstat("@attachments", &st) == 0) {
        const long long attachments = get_dir_size("@attachments", false);
        if (attachments < 0) {
            messlog2(0, 0, "unable to count attachments folder size");
            return 0;
        }
        quota -= attachments;
        if (quota < 0) {
            errno = 0;
            messlog2(0, 0, "WARNING: @attachments directory is big enough to disable delivery!");
            quota = 0;
        }
    }
    return store_maildirpp_quota_raw("./Maildir", quota);
}

long long get_mbox_size(const std::string& mailname, const std::string& domain, bool inBlocks)
{
    const auto ascii = idn_toascii(domain.c_str());
    if (!ascii) {
        errno = 0;
        messlog2(1, 0, "idn_toascii() failed: %s", idn_strerror(idn_errno));
        return -1;  // not reached: status 1 ends the process
    }
    const std::string home =
        zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX) + "/" + *ascii + "/" + mailname + "/";
    if (home.size() > kPathBuffer - 1) {
        errno = 0;
        messlog2(1, 0, "user mailbox path is too long");
    }
    long long attachments = get_dir_size(home + "@attachments", inBlocks);
    if (attachments < 0)
        attachments = 0;
    long long bytes = 0;
    unsigned long long count = 0;
    if (!get_maildirpp_usage(home + "Maildir", bytes, count))
        messlog2(1, 0, "Unable to calculate Maildir++ size: %s", std::strerror(errno));
    return attachments + bytes;
}

int rm_mbox_quota(const std::string& domain, const std::string& mailname)
{
    const MysqlHandle db = connectPanel();
    std::string escaped;
    if (!db || !escapedDomain(db.get(), domain, escaped))
        return 0;
    const std::string query = "SELECT id, webspace_id FROM domains WHERE name='" + escaped + "'";
    if (mysql_real_query(db.get(), query.data(), query.size()) != 0) {
        errno = 0;  // the client library's text says why
        messlog2(0, 0, "Unable to query domain ID: %s", mysql_error(db.get()));
        return 0;
    }
    MYSQL_RES* stored = mysql_store_result(db.get());
    if (!stored) {
        errno = 0;  // the client library's text says why
        messlog2(0, 0, "Unable to get domain ID query result: %s", mysql_error(db.get()));
        return 0;
    }
    quelt::mysql::Result result(stored);
    quelt::mysql::row_t row;
    if (!result.fetch(row)) {
        errno = 0;  // the client library's text says why
        messlog2(0, 0, "No such domain %s", domain.c_str());
        return 0;
    }
    // A domain inside a webspace takes the webspace's limits.
    const std::string& webspace = row["webspace_id"];
    const std::string& owner = webspace.empty() || webspace == "0" ? row["id"] : webspace;
    const auto limit = get_dom_Limit(owner, "mbox_quota", db.get());
    if (!limit) {
        errno = 0;
        messlog2(0, 0, "Unable to get the mbox_quota limit of domain %s", domain.c_str());
        return 0;
    }
    return store_mbox_quota(domain, mailname, quotaValue(*limit).value_or(-1));
}

int store_default_mbox_quota(const std::string& domain, long long quota)
{
    const MysqlHandle db = connectPanel();
    std::string escaped;
    if (!db || !escapedDomain(db.get(), domain, escaped))
        return 0;
    const std::string query =
        "SELECT m.mail_name, m.mbox_quota FROM mail m, domains d WHERE d.id = m.dom_id AND "
        "d.name='" + escaped + "' ";
    errno = 0;
    if (query.size() >= kPathBuffer) {
        messlog2(0, 0, "domain name is too long to fit query buffer");
        return 0;
    }
    MYSQL_RES* stored = nullptr;
    if (mysql_real_query(db.get(), query.data(), query.size()) != 0 ||
        !(stored = mysql_store_result(db.get()))) {
        errno = 0;  // the client library's text says why
        messlog2(0, 0, "Unable to query mailnames: %s", mysql_error(db.get()));
        return 0;
    }
    quelt::mysql::Result result(stored);
    quelt::mysql::row_t row;
    while (result.fetch(row)) {
        const auto own = quotaValue(row["mbox_quota"]);
        if (own && *own != -1)
            continue;  // the mailbox has a quota of its own
        const std::string& mailname = row["mail_name"];
        if (store_mbox_quota(domain, mailname, quota) != 1) {
            errno = 0;
            messlog2(0, 0, "unable to set default mbox quota for domain '%s' (processing '%s')",
                     domain.c_str(), mailname.c_str());
            return 0;
        }
    }
    return 1;
}

int store_domain_quota(const std::string& domain, long long quota)
{
    return store_default_mbox_quota(domain, quota);
}

int rm_default_mbox_quota(const std::string& domain)
{
    return store_default_mbox_quota(domain, -1);
}

int rm_domain_quota(const std::string& domain)
{
    return store_default_mbox_quota(domain, -1);
}
