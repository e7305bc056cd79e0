// Connection to the panel database and the lookups of domain aliases, mailnames and mail aliases.
#include "auth/panel_db.h"

#include <fcntl.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "model/names/idn.h"
#include "runtime/fd_owner.h"
#include "runtime/log.h"

namespace {

// The handle to use: the caller's, or one opened here (kept in `own`, closed with it).
MYSQL* useOrConnect(MYSQL* handle, MysqlHandle& own)
{
    if (handle)
        return handle;
    own = db_connect();
    return own.get();
}

// The handle, or null in its place when it carries an error number.
MysqlHandle withoutErrorNumber(MysqlHandle handle)
{
    if (handle && mysql_errno(handle.get()) != 0)
        return nullptr;
    return handle;
}

}  // namespace

MysqlHandle quelt_db_connect_raw_ex(std::string& error)
{
    quelt::StdioFile file(std::fopen(kPanelPasswordFile, "re"));
    if (!file) {
        error = std::string("Unable to open admin password file: ") + std::strerror(errno);
        return nullptr;
    }
    char line[100];
    errno = 0;
    if (!std::fgets(line, sizeof line, file.get())) {
        error = std::string("Unable to read admin password file: ") + std::strerror(errno);
        return nullptr;
    }
    const std::size_t length = std::strlen(line);
    if (length > 0 && line[length - 1] == '\n')
        line[length - 1] = '\0';
    MysqlHandle handle(mysql_init(nullptr));
    if (!handle) {
        errno = ENOMEM;
        error = std::string("Unable to initialize MySQL connection structure: ") + std::strerror(ENOMEM);
        return nullptr;
    }
    const bool connected = mysql_real_connect(handle.get(), "localhost", "admin", line, "zvt", 0, nullptr, 0);
    std::memset(line, 0, sizeof line);
    if (!connected) {
        error = std::string("Unable to connect to Quelt Database: ") + mysql_error(handle.get());
        return nullptr;
    }
    // The client library opens its socket without close-on-exec.
    const int socket = static_cast<int>(mysql_get_socket(handle.get()));
    const int flags = ::fcntl(socket, F_GETFD);
    if (flags >= 0)
        ::fcntl(socket, F_SETFD, flags | FD_CLOEXEC);
    return handle;
}

MysqlHandle quelt_db_connect_raw(std::string& error)
{
    return withoutErrorNumber(quelt_db_connect_raw_ex(error));
}

MysqlHandle quelt_db_connect_ex(std::string& error)
{
    MysqlHandle handle = quelt_db_connect_raw(error);
    if (handle && mysql_query(handle.get(), "SET NAMES utf8") != 0) {
        const unsigned number = mysql_errno(handle.get());
        char text[4097];
        if (number != 0)
            std::snprintf(text, sizeof text, "DB error (%s) %u: %s", "set names query", number,
                          mysql_error(handle.get()));
        else
            std::snprintf(text, sizeof text, "DB error (%s): unknown error", "set names query");
        error = text;
    }
    return handle;
}

MysqlHandle quelt_db_connect(std::string& error)
{
    return withoutErrorNumber(quelt_db_connect_ex(error));
}

MysqlHandle db_connect_nothrow(std::string& error)
{
    return quelt_db_connect(error);
}

MysqlHandle db_connect()
{
    std::string error;
    MysqlHandle handle = db_connect_nothrow(error);
    if (!handle)
        messlog2(0, 0, "%s", error.c_str());
    return handle;
}

std::string mysql_real_escape_entity(MYSQL* handle, const std::string& text)
{
    MysqlHandle own;
    MYSQL* use = useOrConnect(handle, own);
    if (!use) {
        quelt_log(LOG_ERR, "Unable to connect to mysql database for query escape");
        std::exit(1);
    }
    std::string escaped(text.size() * 2 + 1, '\0');
    const unsigned long length = mysql_real_escape_string(use, &escaped[0], text.data(), text.size());
    escaped.resize(length);
    return escaped;
}

std::optional<std::string> mysql_escape_mail_entity(MYSQL* handle, const std::string& name)
{
    const auto ascii = idn_toascii(name.c_str());
    if (!ascii)
        return std::nullopt;
    return mysql_real_escape_entity(handle, *ascii);
}

int exec_mysql_query(MYSQL* handle, const std::string& query, StringList& list)
{
    MysqlHandle own;
    MYSQL* use = useOrConnect(handle, own);
    if (!use) {
        quelt_log(LOG_ERR, "Unable to connect to mysql database");
        return -1;
    }
    if (mysql_real_query(use, query.data(), query.size()) != 0) {
        quelt_log(LOG_ERR, "Failed to exec query, Error: %s", mysql_error(use));
        return -1;
    }
    list.reset();
    MysqlResult result(mysql_store_result(use));
    if (!result) {
        if (mysql_errno(use) == 0)
            return 0;
        quelt_log(LOG_ERR, "Unable to get data from mysql database: %s", mysql_error(use));
        return -1;
    }
    StringList rows;
    while (MYSQL_ROW row = mysql_fetch_row(result.get())) {
        if (!rows)
            rows.emplace();
        rows->emplace_back(row[0] ? row[0] : "");
    }
    list = std::move(rows);
    return 0;
}

namespace {

// Formats a lookup's query around escaped values; false when it does not fit.
template <class... Args>
bool formatQuery(std::string& query, const char* format, const Args&... args)
{
    const int length = std::snprintf(nullptr, 0, format, args.c_str()...);
    if (length < 0) {
        quelt_log(LOG_ERR, "Unable to create database query");
        return false;
    }
    query.assign(static_cast<std::size_t>(length) + 1, '\0');
    std::snprintf(&query[0], query.size(), format, args.c_str()...);
    query.resize(static_cast<std::size_t>(length));
    return true;
}

// Runs a lookup formed around the escaped values into `list`: 0, or -1 when the query cannot be
// formed (logged there) or fails, then logged as "<failure>: <subject>".
template <class... Args>
int lookup(MYSQL* handle, StringList& list, const char* failure, const std::string& subject, const char* format,
           const Args&... escaped)
{
    std::string query;
    if (!formatQuery(query, format, escaped...))
        return -1;
    if (exec_mysql_query(handle, query, list) != 0) {
        quelt_log(LOG_ERR, "%s: %s", failure, subject.c_str());
        return -1;
    }
    return 0;
}

}  // namespace

int get_domaliases_by_domain(MYSQL* handle, StringList& list, const std::string& domain)
{
    const std::string escaped = mysql_real_escape_entity(handle, domain);
    return lookup(handle, list, "Unable to get domain aliases from database for", domain,
                  "SELECT da.name FROM domainaliases da JOIN domains d WHERE da.dom_id=d.id and d.name='%s'", escaped);
}

int get_mailnames_by_domain(MYSQL* handle, StringList& list, const std::string& domain)
{
    const std::string escaped = mysql_real_escape_entity(handle, domain);
    return lookup(handle, list, "Unable to get mailnames from domain", domain,
                  "SELECT m.mail_name FROM mail m JOIN domains d WHERE m.dom_id=d.id AND d.name='%s'", escaped);
}

int get_aliases_by_mailname(MYSQL* handle, StringList& list, const std::string& mailname, const std::string& domain)
{
    const std::string escapedMailname = mysql_real_escape_entity(handle, mailname);
    const std::string escapedDomain = mysql_real_escape_entity(handle, domain);
    return lookup(handle, list, "Unable to get aliases for mailname", mailname + "@" + domain,
                  "SELECT ma.alias FROM mail_aliases ma JOIN mail m, domains d WHERE ma.mn_id=m.id AND "
                  "m.mail_name='%s' AND m.dom_id=d.id AND d.name='%s'",
                  escapedMailname, escapedDomain);
}

int get_domain_by_domainalias(MYSQL* handle, std::optional<std::string>& domain, const std::string& domainAlias)
{
    const std::string escaped = mysql_real_escape_entity(handle, domainAlias);
    StringList names;
    if (lookup(handle, names, "Unable to get domain by domainalias", domainAlias,
               "SELECT d.name FROM domains d JOIN domainaliases da WHERE d.id=da.dom_id AND da.name='%s'", escaped) != 0)
        return -1;
    if (names && !names->empty())
        domain = names->front();
    return 0;
}

std::optional<std::string> get_dom_Limit(const std::string& domainId, const std::string& limitName, MYSQL* handle)
{
    MysqlHandle own;
    MYSQL* use = useOrConnect(handle, own);
    if (!use) {
        messlog2(0, 0, "Unable to connect to the mysql database\n");
        return std::nullopt;
    }
    char query[4096];
    std::snprintf(query, sizeof query,
                  "select l.value from domains d, Limits l \t\t\t\t where d.id='%s' and d.limits_id=l.id  and "
                  "l.limit_name='%s'",
                  domainId.c_str(), limitName.c_str());
    if (mysql_query(use, query) != 0) {
        messlog2(0, 0, "Unable to query domain limit %s: %s\n", limitName.c_str(), mysql_error(use));
        return std::nullopt;
    }
    MysqlResult result(mysql_store_result(use));
    if (!result) {
        messlog2(0, 0, "Unable to query domain limit %s: %s\n", limitName.c_str(), mysql_error(use));
        return std::nullopt;
    }
    MYSQL_ROW row = mysql_fetch_row(result.get());
    if (!row || !row[0])
        return std::string();
    return std::string(row[0]).substr(0, 4095);
}
