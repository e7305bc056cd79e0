// Where the password database and its key live.
#include "auth/passwd_location.h"

namespace {

struct Style {
    const char* db;
    const char* key;
};

constexpr Style kStyles[] = {
    {"/var/lib/quelt/mail/auth/passwd.db", "/var/lib/quelt/mail/auth/passwd_db_key"},
    {"/var/spool/postfix/quelt/passwd.db", "/var/spool/postfix/quelt/passwd_db_key"},
};

std::string& dbPath()
{
    static std::string path = kStyles[0].db;
    return path;
}

std::string& keyPath()
{
    static std::string path = kStyles[0].key;
    return path;
}

}  // namespace

void mailAuthDBSelectStyle(int style)
{
    if (style != 0 && style != 1)
        return;
    dbPath() = kStyles[style].db;
    keyPath() = kStyles[style].key;
}

void mailAuthDBSetPath(const std::string& path)
{
    dbPath() = path;
}

void mailAuthKeySetPath(const std::string& path)
{
    keyPath() = path;
}

const std::string& mailAuthDBPath()
{
    return dbPath();
}

const std::string& mailAuthKeyPath()
{
    return keyPath();
}

std::string mailAuthDBToKeyPath(const std::string& dbPath)
{
    const auto slash = dbPath.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string(".") : dbPath.substr(0, slash);
    return dir + "/passwd_db_key";
}
