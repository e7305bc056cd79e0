// Makes a stock Postfix server ready for mailrig.
#include "front/setup/server_setup.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>

#include <algorithm>
#include <list>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "auth/passwd_db.h"
#include "auth/passwd_location.h"
#include "config/maincf/main_cf_manager.h"
#include "front/setup/delivery_transport.h"
#include "handlers/mail_handlers.h"
#include "runtime/lock_file.h"
#include "runtime/zvt_conf.h"
#include "services/process/exec_cmd.h"
#include "storage/popuser.h"
#include "tables/database_helper.h"
#include "tables/table_names.h"

namespace quelt::mail::postfix::setup {

namespace fs = boost::filesystem;

namespace {

constexpr const char* kTablesDir = "/var/spool/postfix/quelt";

const char* const kTables[] = {tables::kVirtualDomains, tables::kVirtual,          tables::kVmailbox,
                               tables::kAliases,        tables::kSenderTransports, tables::kBlacklists};

struct MailUser {
    uid_t uid;
    gid_t gid;
};

std::optional<MailUser> lookUpMailUser()
{
    MailUser user{};
    if (!lookupMailOwner(user.uid, user.gid))
        return std::nullopt;
    return user;
}

std::string createUserCommand(const std::string& home)
{
    return std::string("groupadd --system ") + kMailOwner + " && useradd --system --gid " + kMailOwner +
           " --home-dir " + home + " --no-create-home --shell /usr/sbin/nologin " + kMailOwner;
}

MailUser ensureMailUser(const SetupOptions& options, const std::string& mailRoot, std::ostream& out, int& changes)
{
    if (auto user = lookUpMailUser())
        return *user;
    if (options.missingUser == MissingUser::Fail)
        throw std::runtime_error(std::string("the mail user ") + kMailOwner +
                                 " does not exist; create it with\n    " + createUserCommand(mailRoot) +
                                 "\nor run mailrig-setup --create-user");
    if (!::getgrnam(kMailOwner)) {
        ExecCmd groupadd("groupadd");
        groupadd << "--system" << kMailOwner;
        groupadd.exec();
    }
    ExecCmd useradd("useradd");
    useradd << "--system" << "--gid" << kMailOwner << "--home-dir" << mailRoot << "--no-create-home"
            << "--shell" << "/usr/sbin/nologin" << kMailOwner;
    useradd.exec();
    out << "created the mail user " << kMailOwner << '\n';
    ++changes;
    if (auto user = lookUpMailUser())
        return *user;
    throw std::runtime_error(std::string("useradd did not create ") + kMailOwner);
}

// Creates `dir` (and its parents, which keep the defaults) with the owner and mode when missing;
// an existing folder is left as the admin has it.
void ensureDirectory(const fs::path& dir, uid_t uid, gid_t gid, mode_t mode, std::ostream& out, int& changes)
{
    if (fs::is_directory(dir))
        return;
    fs::create_directories(dir);
    if (::chown(dir.c_str(), uid, gid) != 0 || ::chmod(dir.c_str(), mode) != 0)
        throw std::runtime_error("cannot set the owner and mode of " + dir.string());
    out << "created " << dir.string() << '\n';
    ++changes;
}

void ensureTables(std::ostream& out, int& changes)
{
    for (const char* table : kTables) {
        const std::string path = tablePath(table);
        if (fs::exists(path + ".db"))
            continue;
        const std::vector<std::pair<std::string, std::string>> none;
        DatabaseHelper::replaceRecords(table, none.begin(), none.end());
        out << "created the empty table " << table << '\n';
        ++changes;
    }
}

void ensurePasswordDb(const SetupOptions& options, std::ostream& out, int& changes)
{
    const bool present = fs::exists(mailAuthDBPath());
    if (present && options.passwordDb == PasswordDb::KeepExisting)
        return;
    if (mailAuthDBInitStyle(1) != 0)
        throw std::runtime_error("cannot create the password database " + mailAuthDBPath());
    out << (present ? "re-created " : "created ") << "the password database " << mailAuthDBPath() << " and its key\n";
    ++changes;
}

void ensureHandlersDb(std::ostream& out, int& changes)
{
    if (fs::exists(mh_db_path()))
        return;
    if (mh_db_create(nullptr) != 0)
        throw std::runtime_error("cannot create the mail-handlers database " + mh_db_path());
    out << "created the mail-handlers database " << mh_db_path() << '\n';
    ++changes;
}

struct Setting {
    std::string name;
    std::string value;
    bool listItem;  // add `value` to a list instead of replacing the whole value
};

std::vector<Setting> requiredSettings(const std::string& mailRoot, const MailUser* user)
{
    std::vector<Setting> settings{
        {"virtual_mailbox_domains", tables::kVirtualDomains, false},
        {"virtual_mailbox_maps", tables::kVmailbox, false},
        {"virtual_alias_maps", tables::kVirtual, false},
        {"virtual_mailbox_base", mailRoot, false},
    };
    if (user) {
        settings.push_back({"virtual_uid_maps", "static:" + std::to_string(user->uid), false});
        settings.push_back({"virtual_gid_maps", "static:" + std::to_string(user->gid), false});
    }
    settings.push_back({"sender_dependent_default_transport_maps", tables::kSenderTransports, false});
    settings.push_back({"alias_maps", tables::kAliases, true});
    settings.push_back({"mydestination", "localhost.localdomain", true});
    settings.push_back({"smtpd_sender_restrictions", std::string("check_sender_access ") + tables::kBlacklists, true});
    for (const auto& [name, value] : deliveryMainCfSettings())
        settings.push_back({name, value, false});
    return settings;
}

// The words of a list value, split at spaces, tabs and commas as Postfix does; no empty ones.
std::list<std::string> listWords(const std::string& text)
{
    std::list<std::string> words;
    const std::string sep = " \t,";
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find_first_of(sep, at), text.size());
        if (end > at)
            words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

bool listHas(const std::string& value, const std::string& item)
{
    // A multi-word item ("check_sender_access hash:...") is found as consecutive words.
    const std::list<std::string> words = listWords(value);
    const std::list<std::string> wanted = listWords(item);
    return std::search(words.begin(), words.end(), wanted.begin(), wanted.end()) != words.end();
}

void ensureMainCf(const std::string& mailRoot, const MailUser& user, std::ostream& out, int& changes)
{
    const MainCfManager& mainCf = MainCfManager::getInstance();
    for (const Setting& s : requiredSettings(mailRoot, &user)) {
        if (s.listItem) {
            // Start from what Postfix uses now, so that an inherited default keeps its items.
            const std::string current = mainCf.getStringValue(s.name, false);
            if (listHas(current, s.value))
                continue;
            mainCf.replaceStringValue(s.name, current.empty() ? s.value : current + ", " + s.value);
            out << "main.cf: added " << s.value << " to " << s.name << '\n';
        } else {
            if (mainCf.getStringValue(s.name, false) == s.value)
                continue;
            mainCf.replaceStringValue(s.name, s.value);
            out << "main.cf: set " << s.name << " = " << s.value << '\n';
        }
        ++changes;
    }
}

}  // namespace

int prepareServer(const SetupOptions& options, std::ostream& out)
{
    int changes = 0;
    const std::string mailRoot = zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX);
    const MailUser user = ensureMailUser(options, mailRoot, out, changes);

    mailAuthDBSelectStyle(1);
    // Every table and main.cf change below takes its lock there.
    ensureDirectory(kLockFilesDir, 0, 0, 0755, out, changes);
    ensureDirectory(kTablesDir, 0, 0, 0755, out, changes);
    ensureDirectory(mailRoot, user.uid, user.gid, 0755, out, changes);
    ensureDirectory(fs::path(mh_db_path()).parent_path(), 0, 0, 0755, out, changes);
    ensureTables(out, changes);
    ensurePasswordDb(options, out, changes);
    ensureHandlersDb(out, changes);
    // The transport first: main.cf then names a service that exists.
    ensureDeliveryTransport(out, changes);
    ensureMainCf(mailRoot, user, out, changes);
    return changes;
}

std::string requiredMainCfSummary()
{
    std::string text;
    for (const Setting& s : requiredSettings(zvtConfGetDefaultByIndex(QUELT_MAILNAMES_D_IDX), nullptr))
        text += s.name + (s.listItem ? " += " : " = ") + s.value + "\n";
    return text;
}

}  // namespace quelt::mail::postfix::setup
