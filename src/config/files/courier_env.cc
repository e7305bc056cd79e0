// The Courier-IMAP daemons' environment files.
#include "config/files/courier_env.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "runtime/errors.h"
#include "runtime/log.h"
#include "runtime/zvt_conf.h"
#include "services/manager/restart_daemon.h"
#include "services/process/tmp_file.h"

namespace {

const char* const kFiles[] = {"imapd", "imapd-ssl", "pop3d", "pop3d-ssl"};
constexpr std::string::size_type kMaxPath = 4096;

// The temporary copy goes unless it was renamed into place.
class Replacement {
public:
    explicit Replacement(const std::string& path) : file_(path + ".", false) {}
    ~Replacement()
    {
        if (!kept_)
            ::unlink(file_.path().c_str());
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    quelt::TmpFile& file() { return file_; }
    // Gives the copy the owner and mode of `info` and renames it over `path`; false with errno.
    bool replace(const std::string& path, const struct stat& info)
    {
        if (::fchown(file_.fd(), info.st_uid, info.st_gid) != 0 || ::fchmod(file_.fd(), info.st_mode & 07777) != 0)
            return false;
        if (!file_.close() || ::rename(file_.path().c_str(), path.c_str()) != 0)
            return false;
        kept_ = true;
        return true;
    }

private:
    quelt::TmpFile file_;
    bool kept_ = false;
};

std::string lineOf(const EnvChange& change)
{
    return change.var + "=" + change.value.value_or(std::string()) + "\n";
}

// The changed text of one file. `met` records the set changes whose variable was there.
std::string edited(const std::string& text, const std::vector<EnvChange>& changes)
{
    std::vector<bool> met(changes.size(), false);
    std::string result;
    std::string::size_type begin = 0;
    while (begin < text.size()) {
        std::string::size_type end = text.find('\n', begin);
        end = end == std::string::npos ? text.size() : end + 1;
        const std::string line = text.substr(begin, end - begin);
        begin = end;
        std::size_t which = 0;
        for (; which < changes.size(); ++which) {
            const std::string& var = changes[which].var;
            if (line.compare(0, var.size(), var) == 0 && line.size() > var.size() && line[var.size()] == '=')
                break;
        }
        if (which == changes.size()) {
            result += line;
        } else if (changes[which].action == EnvChange::Set && !met[which]) {
            met[which] = true;
            result += lineOf(changes[which]);
        }
    }
    if (!result.empty() && result.back() != '\n')
        result += '\n';
    for (std::size_t i = 0; i < changes.size(); ++i)
        if (changes[i].action == EnvChange::Set && !met[i])
            result += lineOf(changes[i]);
    return result;
}

// 0, or -1 after printing why; a missing file is said and skipped.
int editFile(const std::string& path, const std::vector<EnvChange>& changes)
{
    std::ifstream in(path, std::ios_base::binary);
    struct stat info;
    if (!in.is_open() || ::stat(path.c_str(), &info) != 0) {
        messlog2(0, 0, "Unable to open %s: %s\n", path.c_str(), std::strerror(errno));
        return 0;
    }
    std::ostringstream text;
    text << in.rdbuf();
    const bool readFailed = in.bad();

    std::unique_ptr<Replacement> copy;
    try {
        copy = std::make_unique<Replacement>(path);
    } catch (const quelt::SystemError& e) {
        messlog2(0, 0, "Unable to create temporary file for %s: %s\n", path.c_str(), std::strerror(e.code()));
        return -1;
    }
    copy->file() << edited(text.str(), changes);
    if (readFailed || copy->file().fail()) {
        messlog2(0, 0, "Unable to write temporary file content for %s: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    if (!copy->replace(path, info)) {
        messlog2(0, 0, "Unable to move changed file to its location %s: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace

int edit_courier_env_files(const std::vector<EnvChange>& changes)
{
    std::vector<EnvChange> applied(changes);
    if (applied.size() > kMaxEnvChanges) {
        messlog2(0, 0, "Too many variables specified, tail is ignored\n");
        applied.resize(kMaxEnvChanges);
    }
    const std::string root = zvtConfGetDefaultByIndex(COURIER_IMAP_ROOT_D_IDX);
    for (const char* name : kFiles) {
        const std::string path = root + "/etc/courier-imap/" + name;
        if (path.size() >= kMaxPath) {
            messlog2(0, 0, "File path too long %s\n", path.c_str());
            return -1;
        }
        if (editFile(path, applied) != 0)
            return -1;
    }
    return 0;
}

int set_courier_params_list(const std::vector<EnvChange>& changes)
{
    if (edit_courier_env_files(changes) != 0)
        return -1;
    return restart_daemon("courier-imap", "restart");
}

namespace {

EnvChange onOff(const char* var, bool on, const char* value)
{
    return on ? EnvChange{var, EnvChange::Set, std::string(value)} : EnvChange{var, EnvChange::Remove, std::nullopt};
}

}  // namespace

int set_courier_params(int relayClient, int popAuth, short popLockTime, int shortNames)
{
    std::vector<EnvChange> changes{
        onOff("RELAYCLIENT", relayClient != 0, ""),
        onOff("POPAUTH", popAuth != 0, "1"),
        onOff("SHORTNAMES", shortNames != 0, "1"),
    };
    if (popLockTime >= 0)
        changes.push_back(onOff("POPLOCK_TIME", popLockTime > 0, std::to_string(popLockTime).c_str()));
    return set_courier_params_list(changes);
}

int set_courier_shortnames_params(int shortNames)
{
    return set_courier_params_list({onOff("SHORTNAMES", shortNames != 0, "1")});
}
