// Read access to the panel's MySQL database (database "zvt", user "admin", password on the first
// line of /etc/zvt/.zvt.shadow): connection functions and the list-returning lookups.
#pragma once

#include <mysql.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct MysqlClose {
    void operator()(MYSQL* handle) const { mysql_close(handle); }
};
// Owns one client handle; closing it ends the connection.
using MysqlHandle = std::unique_ptr<MYSQL, MysqlClose>;

struct MysqlResultFree {
    void operator()(MYSQL_RES* result) const { mysql_free_result(result); }
};
// Owns one stored result set.
using MysqlResult = std::unique_ptr<MYSQL_RES, MysqlResultFree>;

// Rows of a lookup, first column each. No rows give no list at all (nullopt), which callers
// tell apart from an empty one.
using StringList = std::optional<std::vector<std::string>>;

inline constexpr const char* kPanelPasswordFile = "/etc/zvt/.zvt.shadow";

// Connection layers, each leaving its failure text in `error`:
// raw_ex reads the password file and connects; raw also refuses a handle with an error number;
// ex adds "SET NAMES utf8" (a failure there still returns the handle, carrying its error number);
// quelt_db_connect refuses such a handle.
MysqlHandle quelt_db_connect_raw_ex(std::string& error);
MysqlHandle quelt_db_connect_raw(std::string& error);
MysqlHandle quelt_db_connect_ex(std::string& error);
MysqlHandle quelt_db_connect(std::string& error);
MysqlHandle db_connect_nothrow(std::string& error);
// An open handle, or null after printing the failure through messlog2 (the process goes on).
MysqlHandle db_connect();

// `text` escaped by the client library for `handle`. Without a handle one is opened and closed;
// when none can be opened the process ends with status 1.
std::string mysql_real_escape_entity(MYSQL* handle, const std::string& text);

// Runs `query` (on `handle`, or on a connection of its own when null) and collects the first
// column of every row. 0 with `list` set (nullopt for no rows or no result set), or -1.
int exec_mysql_query(MYSQL* handle, const std::string& query, StringList& list);

// The lookups: 0 on success, -1 after a message in the product log. A null handle connects
// for the query (and for the escaping of each argument) and disconnects.
int get_domaliases_by_domain(MYSQL* handle, StringList& list, const std::string& domain);
int get_mailnames_by_domain(MYSQL* handle, StringList& list, const std::string& domain);
int get_aliases_by_mailname(MYSQL* handle, StringList& list, const std::string& mailname, const std::string& domain);
// The domain of a domain alias; no row leaves `domain` untouched.
int get_domain_by_domainalias(MYSQL* handle, std::optional<std::string>& domain, const std::string& domainAlias);

// The name in its ASCII (IDNA) form, escaped for `handle`; nothing when the conversion fails.
std::optional<std::string> mysql_escape_mail_entity(MYSQL* handle, const std::string& name);

// The value of a named limit of a domain ("" when it has none), or nothing when the query fails.
// The identifiers go into the query unescaped: a numeric id and a constant limit name.
std::optional<std::string> get_dom_Limit(const std::string& domainId, const std::string& limitName, MYSQL* handle);
