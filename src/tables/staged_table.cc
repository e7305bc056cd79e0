// A rewritten lookup table, built beside the one it replaces and renamed over it in one step.
#include "tables/staged_table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>

#include "runtime/errors.h"
#include "runtime/fd_owner.h"
#include "tables/database_helper.h"

namespace quelt::mail::postfix {

namespace fs = std::filesystem;

namespace {

// The file postmap builds from a text file, by the table's type; a name without a type gets
// Postfix's default type, hash.
std::string indexSuffix(const std::string& table)
{
    const std::string::size_type colon = table.find(':');
    const std::string type = colon == std::string::npos ? "hash" : table.substr(0, colon);
    if (type == "hash" || type == "btree")
        return ".db";
    if (type == "lmdb")
        return ".lmdb";
    if (type == "cdb")
        return ".cdb";
    throw PostfixConfigurationError("unable to rewrite " + table + ": unsupported table type");
}

std::string typePrefix(const std::string& table)
{
    const std::string::size_type colon = table.find(':');
    return colon == std::string::npos ? std::string() : table.substr(0, colon + 1);
}

[[noreturn]] void fail(const std::string& what, const std::string& path)
{
    throw PostfixConfigurationError("unable to " + what + " " + path + ": " + std::strerror(errno));
}

// Only a holder of the table's lock builds beside it, so whatever is there now was left by a
// rewrite that died.
void removeLeftovers(const fs::path& path, const std::string& prefix)
{
    std::error_code ignored;
    if (fs::is_regular_file(fs::symlink_status(path, ignored)))
        fs::remove(path, ignored);
    for (fs::directory_iterator it(path.parent_path(), ignored), end; !ignored && it != end;
         it.increment(ignored)) {
        if (it->path().filename().string().compare(0, prefix.size(), prefix) == 0)
            fs::remove(it->path(), ignored);
    }
}

std::string randomSuffix()
{
    static const char kChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::string suffix;
    for (int i = 0; i < 6; ++i)
        suffix += kChars[random() % (sizeof kChars - 1)];
    return suffix;
}

}  // namespace

StagedTable::StagedTable(const std::string& table)
    : path_(tablePath(table)), suffix_(indexSuffix(table))
{
    const fs::path path = fs::absolute(path_);
    const std::string prefix = "." + path.filename().string() + ".tmp.";
    removeLeftovers(path, prefix);
    // Created as any new file is (0666 less the umask): postmap gives a new table the mode of
    // its text, and a table built for the first time keeps it.
    for (int attempt = 0;; ++attempt) {
        textPath_ = (path.parent_path() / prefix).string() + randomSuffix();
        text_ = std::make_unique<OutputFile>(textPath_, std::ios_base::out, 0666, true);
        if (text_->is_open())
            break;
        const int reason = errno;
        textPath_.clear();
        if (reason != EEXIST || attempt == 20) {
            errno = reason;
            fail("create the new text of", table);
        }
    }
    name_ = typePrefix(table) + textPath_;
    built_ = textPath_ + suffix_;
}

StagedTable::~StagedTable()
{
    text_.reset();
    if (!textPath_.empty())
        ::unlink(textPath_.c_str());
    if (!installed_)
        ::unlink(built_.c_str());
}

void StagedTable::closeText()
{
    text_->close();
    if (text_->fail())
        fail("write", textPath_);
}

void StagedTable::install()
{
    const std::string target = path_ + suffix_;
    FdOwner built(::open(built_.c_str(), O_RDONLY | O_CLOEXEC));
    if (!built.valid())
        fail("open", built_);
    struct stat old {};
    if (::stat(target.c_str(), &old) == 0 &&
        (::fchown(built.get(), old.st_uid, old.st_gid) != 0 ||
         ::fchmod(built.get(), old.st_mode & 07777) != 0))
        fail("give the owner and mode of " + target + " to", built_);
    // On disk before the rename, so that a crash cannot leave the new name on an empty file.
    if (::fsync(built.get()) != 0)
        fail("flush", built_);
    if (::rename(built_.c_str(), target.c_str()) != 0)
        fail("rename the rebuilt table over", target);
    installed_ = true;
    FdOwner dir(::open(fs::absolute(path_).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.valid())
        ::fsync(dir.get());
}

}  // namespace quelt::mail::postfix
