// The panel's configuration file and its compiled-in defaults.
#include "runtime/zvt_conf.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "runtime/file_stream.h"
#include "runtime/log.h"

namespace {

constexpr const char* kZvtConfPath = "/etc/zvt/zvt.conf";
constexpr int kReportPriority = LOG_USER | LOG_WARNING;

bool isNameChar(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

bool isSpace(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// One line with its "\n" (the last may lack it); stores a pair or reports why the line is skipped.
int parseLine(const std::string& line, conf_data& conf)
{
    std::size_t pos = 0;
    while (pos < line.size() && isSpace(line[pos]))
        ++pos;
    if (pos == line.size() || line[pos] == '#')
        return 0;
    const std::size_t nameStart = pos;
    while (pos < line.size() && isNameChar(line[pos]))
        ++pos;
    if (pos == nameStart || pos == line.size() || !isSpace(line[pos])) {
        quelt_log(kReportPriority,
                  "Invalid variable definition %s\nExpected a space after variable name\n",
                  line.c_str() + nameStart);
        return 0;
    }
    const std::string name = line.substr(nameStart, pos - nameStart);
    while (pos < line.size() && isSpace(line[pos]))
        ++pos;
    if (pos == line.size() || line[pos] == '#') {
        quelt_log(kReportPriority, "Invalid variable definition %s\nExpected a value",
                  line.c_str() + nameStart);
        return 0;
    }
    std::size_t end = line.find('#', pos);
    if (end == std::string::npos)
        end = line.size();
    while (end > pos && isSpace(line[end - 1]))
        --end;
    return conf_set_r(name, line.substr(pos, end - pos), conf);
}

std::unique_ptr<conf_data> g_conf;
std::array<std::optional<std::string>, kZvtConfMaxIndex + 1> g_cache;

}  // namespace

const char* const theZvtConfNames[kZvtConfMaxIndex + 2] = {
    "_MIN_POSSIBLE_ZVT_CONF_VAR_NAME", "QUELT_MAILNAMES_D", "COURIER_IMAP_ROOT_D", "RBLSMTPD",
    "CLIENT_PHP_BIN", "LIB_CRYPTO_PATH", "LIB_SSL_PATH", "AWSTATS_DOC_D", "AWSTATS_TOOLS_D",
    "AWSTATS_BIN_D", "AWSTATS_ETC_D", "CATALINA_HOME", "MAILMAN_VAR_D", "MAILMAN_ROOT_D",
    "PGSQL_DATA_D", "PGSQL_BIN_D", "MYSQL_BIN_D", "MYSQL_VAR_D", "WEB_STAT", "DUMP_D",
    "DUMP_TMP_D", "NAMED_RUN_ROOT_D", "FTPD_CONF_INC", "HTTPD_SERVICE", "HTTPD_LOG_D",
    "HTTPD_INCLUDE_D", "HTTPD_CONF_D", "HTTPD_VHOSTS_D", "PRODUCT_ROOT_D", "NAMED_OPTIONS_CONF",
    "NAMED_ZONES_CONF", "_MAX_POSSIBLE_ZVT_CONF_VAR_NAME", nullptr};

const char* const theZvtConfDefauls[kZvtConfMaxIndex + 2] = {
    "_MIN_POSSIBLE_ZVT_CONF_VAR_VALUE", "/var/qmail/mailnames", "/", "/usr/sbin/rblsmtpd",
    "/usr/local/zvt/bin/php-cli", "/lib/libcrypto.so", "/lib/libssl.so",
    "/usr/share/apache2/icons/awstats", "/usr/share/awstats", "/srv/www/cgi-bin/awstats",
    "/etc/awstats", "/usr/share/tomcat6", "/var/lib/mailman", "/usr/lib/mailman",
    "/var/lib/pgsql/data", "/usr/bin", "/usr/bin", "/var/lib/mysql", "/usr/bin/webalizer",
    "/var/lib/zvt/dumps", "/tmp", "/var/lib/named", "/etc/proftpd.include", "apache2",
    "/var/log/apache2", "/etc/apache2/conf.d", "/etc/apache2", "/srv/www/vhosts", "/usr/local/zvt",
    "/etc/named.conf.include.quelt-options", "/etc/named.conf.include.quelt-zones",
    "_MAX_POSSIBLE_ZVT_CONF_VAR_VALUE", nullptr};

int conf_set_r(const std::string& key, const std::string& value, conf_data& conf)
{
    for (auto& entry : conf.data) {
        if (entry.key == key) {
            entry.value = value;
            return 0;
        }
    }
    conf.data.push_back({key, value});
    conf.finalized = false;
    return 0;
}

void conf_finalize_r(conf_data& conf)
{
    if (conf.finalized)
        return;
    std::sort(conf.data.begin(), conf.data.end(),
              [](const conf_entry& a, const conf_entry& b) { return a.key < b.key; });
    conf.finalized = true;
}

std::optional<std::string> conf_get_r(const std::string& key, const conf_data& conf)
{
    if (conf.finalized) {
        auto it = std::lower_bound(conf.data.begin(), conf.data.end(), key,
                                   [](const conf_entry& e, const std::string& k) { return e.key < k; });
        if (it != conf.data.end() && it->key == key)
            return it->value;
        return std::nullopt;
    }
    for (const auto& entry : conf.data)
        if (entry.key == key)
            return entry.value;
    return std::nullopt;
}

int conf_read_file_r(const char* path, conf_data& conf)
{
    quelt::InputFile in(path);
    if (!in) {
        const int saved = errno;
        quelt_log(kReportPriority, "unable to open configuration file %s: %s\n", path,
                  std::strerror(saved));
        errno = saved;
        return -1;
    }
    std::string line;
    while (std::getline(in, line)) {
        // The reports quote the line as read, its newline included.
        if (!in.eof())
            line += '\n';
        if (parseLine(line, conf) != 0)
            return -1;
    }
    if (in.bad()) {
        const int saved = errno;
        quelt_log(kReportPriority, "Unable to read configuration file: %s", std::strerror(saved));
        errno = saved;
        return -1;
    }
    conf_finalize_r(conf);
    return 0;
}

int autoprepend()
{
    if (g_conf)
        return 0;
    auto conf = std::make_unique<conf_data>();
    if (conf_read_file_r(kZvtConfPath, *conf) != 0)
        return -1;
    g_conf = std::move(conf);
    return 0;
}

std::optional<std::string> zvtConfGet(const std::string& name)
{
    if (autoprepend() != 0)
        return std::nullopt;
    return conf_get_r(name, *g_conf);
}

std::optional<std::string> zvtConfGetByIndex(int index)
{
    if (index < 0 || index > kZvtConfMaxIndex)
        return std::nullopt;
    if (!g_cache[index])
        g_cache[index] = zvtConfGet(theZvtConfNames[index]);
    return g_cache[index];
}

std::string zvtConfGetDefaultByIndex(int index)
{
    if (auto value = zvtConfGetByIndex(index))
        return *value;
    if (index < 0 || index > kZvtConfMaxIndex)
        return std::string();
    return theZvtConfDefauls[index];
}

std::optional<std::string> zvtConfGetDefault(const std::string& name)
{
    for (int i = 0; i < kZvtConfMaxIndex; ++i)
        if (name == theZvtConfNames[i])
            return zvtConfGetDefaultByIndex(i);
    messlog2(0, 0, "variable '%s' isn't found neither in %s nor in compile-time defaults\n",
             name.c_str(), kZvtConfPath);
    return std::nullopt;
}

int get_env_password(std::string& password, int& crypted)
{
    for (const auto& [variable, flag] : {std::pair{"ZVT_PASSWORD", 0}, std::pair{"ZVT_CRYPTED_PASSWORD", 1}}) {
        const char* value = std::getenv(variable);
        if (value && *value) {
            password = value;
            crypted = flag;
            ::unsetenv(variable);
            return 0;
        }
    }
    return -1;
}
