// The DomainKeys private-key files of the domains: /etc/domainkeys/<domain>/default.
#include "config/files/domain_keys.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/filesystem.hpp>

#include "model/names/name_checks.h"
#include "runtime/copy_file.h"
#include "runtime/launch.h"
#include "runtime/log.h"

namespace fs = boost::filesystem;

namespace {

constexpr const char* kKeysDir = "/etc/domainkeys";
constexpr const char* kKeyName = "default";
constexpr std::string::size_type kMaxPath = 4096;

// The non-empty names of a comma-separated list.
std::vector<std::string> splitDomains(const std::string& domains)
{
    std::vector<std::string> pieces;
    boost::algorithm::split(pieces, domains, [](char c) { return c == ','; });
    std::vector<std::string> names;
    for (const std::string& piece : pieces)
        if (!piece.empty())
            names.push_back(piece);
    return names;
}

// The domain's key folder, or nothing after printing why: the name must be a plain DNS name
// once lower-cased, so that it stays one folder below /etc/domainkeys.
std::optional<std::string> keyDir(const std::string& domain)
{
    const std::string lower = boost::algorithm::to_lower_copy(domain);
    if (!quelt::names::isCheckedDomain(lower)) {
        messlog2(0, 0, "Invalid domain name '%s'", quelt::names::printable(domain).c_str());
        return std::nullopt;
    }
    const std::string dir = std::string(kKeysDir) + "/" + lower;
    if (dir.size() >= kMaxPath) {
        messlog2(0, 0, "Domain name '%s' is too long to be stored in %s", lower.c_str(), kKeysDir);
        return std::nullopt;
    }
    return dir;
}

// Runs `action` on the key folder of every domain of the list; -1 when any failed.
int forEachDomain(const std::string& domains, const std::function<int(const std::string&, const std::string&)>& action)
{
    int result = 0;
    for (const std::string& domain : splitDomains(domains)) {
        const std::optional<std::string> dir = keyDir(domain);
        if (!dir || action(domain, *dir) != 0)
            result = -1;
    }
    return result;
}

}  // namespace

std::optional<std::string> get_domainkeys_file(const std::string& domain)
{
    const std::string lower = boost::algorithm::to_lower_copy(domain);
    const std::string path = std::string(kKeysDir) + "/" + lower + "/" + kKeyName;
    if (path.size() >= kMaxPath) {
        messlog2(0, 0, "File name '%s' is too long to be stored in %s/%s", kKeyName, kKeysDir, lower.c_str());
        return std::nullopt;
    }
    return path;
}

int domainkeys_enabled(const std::string& domain)
{
    const std::optional<std::string> path = get_domainkeys_file(domain);
    struct stat info;
    return path && ::stat(path->c_str(), &info) == 0 && S_ISREG(info.st_mode) ? 1 : 0;
}

int set_domain_key(const std::string& domains, const std::string& keyFile)
{
    struct stat info;
    if (::stat(keyFile.c_str(), &info) != 0) {
        messlog2(0, 0, "No source file '%s': %s", keyFile.c_str(), std::strerror(errno));
        return -1;
    }
    uid_t uid;
    gid_t group;
    if (quelt_ugid("popuser", &uid, &group) != 0) {
        messlog2(0, 0, "Unable to find the group of user popuser");
        return -1;
    }
    return forEachDomain(domains, [&](const std::string& domain, const std::string& dir) {
        boost::system::error_code error;
        fs::create_directories(dir, error);
        if (!error)
            fs::permissions(dir, fs::perms(0755), error);
        if (error) {
            messlog2(0, 0, "Unable to create directory %s: %s", dir.c_str(), error.message().c_str());
            return -1;
        }
        const std::string path = dir + "/" + kKeyName;
        if (path.size() >= kMaxPath) {
            messlog2(0, 0, "File name '%s' is too long to be stored in %s/%s", kKeyName, kKeysDir, domain.c_str());
            return -1;
        }
        copy_file_atomic(keyFile, path, 0, group, 0440);
        return 0;
    });
}

int clone_domain_key(const std::string& fromDomain, const std::string& toDomains)
{
    if (!domainkeys_enabled(fromDomain))
        return 0;
    const std::optional<std::string> keyFile = get_domainkeys_file(fromDomain);
    if (!keyFile) {
        messlog2(0, 0, "Cannot get domainkeys key file for %s", fromDomain.c_str());
        return -1;
    }
    return set_domain_key(toDomains, *keyFile);
}

int remove_domain_key(const std::string& domains)
{
    return forEachDomain(domains, [](const std::string&, const std::string& dir) {
        boost::system::error_code error;
        fs::remove_all(dir, error);
        if (error) {
            messlog2(0, 0, "Unable to remove directory %s: %s", dir.c_str(), error.message().c_str());
            return -1;
        }
        return 0;
    });
}
