// Creation of the mail password database and its key, and detection of the mail server style.
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "auth/cipher.h"
#include "auth/passwd_db.h"
#include "auth/passwd_db_session.h"
#include "runtime/fd_owner.h"
#include "runtime/launch.h"
#include "runtime/zvt_conf.h"

namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kKeySize = 32;

// Creates the directory of `path` with its missing parents.
bool makeParentDirectory(const std::string& path)
{
    const fs::path dir = fs::path(path).parent_path();
    if (dir.empty()) {
        quelt_log(LOG_CRIT, "dirname(%s) failed: %s", path.c_str(), std::strerror(EINVAL));
        return false;
    }
    boost::system::error_code error;
    fs::create_directories(dir, error);
    if (error) {
        quelt_log(LOG_CRIT, "recursive mkdir(%s) failed: %s", dir.string().c_str(), error.message().c_str());
        return false;
    }
    return true;
}

bool recreateDatabase()
{
    const std::string& path = mailAuthDBPath();
    if (!makeParentDirectory(path))
        return false;
    ::unlink(path.c_str());
    quelt::sqlite::Database db;
    if (!quelt::mail::authdb::openDatabase(db, quelt::mail::authdb::Access::Create))
        return false;
    if (db.exec(kMailAuthSchema) != SQLITE_OK) {
        if (db.get())
            quelt_log(LOG_ERR, "Unable to re-create Mail Authentication Database: %s", sqlite3_errmsg(db.get()));
        else
            quelt_log(LOG_ERR, "Unable to re-create Mail Authentication Database");
        return false;
    }
    return db.close() == SQLITE_OK;
}

bool recreateKey()
{
    const std::string& path = mailAuthKeyPath();
    if (!makeParentDirectory(path))
        return false;
    ::unlink(path.c_str());
    unsigned char key[kKeySize];
    if (mail_aes_gen_key(key, sizeof key) != static_cast<int>(kKeySize)) {
        quelt_log(LOG_CRIT, "Unable to generate new Mail Authentication Password Encryption Key data: %s",
                  std::strerror(errno));
        return false;
    }
    // Created private (as under the creation mask 077); the final owner and mode come after.
    quelt::FdOwner file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    bool written = file.valid() && ::write(file.get(), key, sizeof key) == static_cast<ssize_t>(sizeof key) &&
                   file.close_nothrow() == 0;
    const int err = errno;
    std::memset(key, 0, sizeof key);
    if (!written) {
        quelt_log(LOG_ERR, "Unable to re-create Mail Authentication Password Encryption Key: %s", std::strerror(err));
        return false;
    }
    return true;
}

bool setOwnerAndMode(const std::string& path, uid_t uid, gid_t gid, mode_t mode)
{
    if (::chown(path.c_str(), uid, gid) != 0) {
        quelt_log(LOG_CRIT, "chown(\"%s\", %d, %d) failed: %s", path.c_str(), static_cast<int>(uid),
                  static_cast<int>(gid), std::strerror(errno));
        return false;
    }
    if (::chmod(path.c_str(), mode) != 0) {
        quelt_log(LOG_CRIT, "chmod(\"%s\", %04o) failed: %s", path.c_str(), static_cast<unsigned>(mode),
                  std::strerror(errno));
        return false;
    }
    return true;
}

// Postfix's daemons read the database and key as user postfix; qmail's checkers run as root.
bool setPermissions(int style)
{
    uid_t postfixUid = 0;
    gid_t postfixGid = 0;
    if (style == 1 && quelt_ugid("postfix", &postfixUid, &postfixGid) != 0) {
        quelt_log(LOG_CRIT, "Unable to get user id for \"%s\": %s", "postfix", std::strerror(errno));
        return false;
    }
    const std::string dir = fs::path(mailAuthDBPath()).parent_path().string();
    if (dir.empty() || dir[0] != '/' || dir == "/") {
        quelt_log(LOG_ERR, "Invalid mail authentication DB path %s", mailAuthDBPath().c_str());
        return false;
    }
    if (style == 1)
        return setOwnerAndMode(dir, postfixUid, postfixGid, 0770) &&
               setOwnerAndMode(mailAuthDBPath(), postfixUid, 0, 0460) &&
               setOwnerAndMode(mailAuthKeyPath(), postfixUid, 0, 0440);
    return setOwnerAndMode(dir, 0, 0, 0750) && setOwnerAndMode(mailAuthDBPath(), 0, 0, 0600) &&
           setOwnerAndMode(mailAuthKeyPath(), 0, 0, 0400);
}

struct PipeClose {
    void operator()(std::FILE* pipe) const { ::pclose(pipe); }
};

// The style one feature line names: 1, 0, or -1 when the line does not decide.
int styleOfFeatureLine(const std::string& line)
{
    static const std::string kFeature = "$features['SMTP_Server']";
    if (line.compare(0, kFeature.size(), kFeature) != 0)
        return -1;
    const auto open = line.find_first_of("'\"", kFeature.size());
    const auto close = open == std::string::npos ? open : line.find_first_of("'\"", open + 1);
    if (close == std::string::npos) {
        quelt_log(LOG_INFO, "Unparseable line \"%s\", skipped", line.c_str());
        return -1;
    }
    const std::string value = line.substr(open + 1, close - open - 1);
    if (strcasecmp(value.c_str(), "postfix") == 0)
        return 1;
    if (strcasecmp(value.c_str(), "qmail") == 0)
        return 0;
    quelt_log(LOG_INFO, "Unknown server style \"%.*s\", skipped", static_cast<int>(value.size()), value.c_str());
    return -1;
}

}  // namespace

int mailAuthDBInitStyle(int style)
{
    mailAuthDBSelectStyle(style);
    if (!recreateDatabase() || !recreateKey() || !setPermissions(style))
        return -1;
    return 0;
}

int mailAuthDBDetectStyle()
{
    constexpr std::size_t kMaxCommand = 4094;
    const std::string root = zvtConfGetDefaultByIndex(PRODUCT_ROOT_D_IDX);
    const std::string command = root + "/admin/sbin/mailrig --features";
    if (command.size() > kMaxCommand) {
        quelt_log(LOG_ERR, "path to mailrig is too long, check PRODUCT_ROOT_D (%s)", root.c_str());
        return -1;
    }
    std::unique_ptr<std::FILE, PipeClose> output(::popen(command.c_str(), "re"));
    if (!output) {
        quelt_log(LOG_ERR, "unable to execute %s: %s", command.c_str(), std::strerror(errno));
        return -1;
    }
    std::string text;
    char chunk[4096];
    std::size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, output.get())) > 0)
        text.append(chunk, got);
    int style = -1;
    std::size_t start = 0;
    while (style < 0 && start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        style = styleOfFeatureLine(text.substr(start, end - start));
        start = end + 1;
    }
    if (style < 0)
        quelt_log(LOG_INFO, "Unable to determine mail server type from ``mailrig --features''");
    return style;
}
