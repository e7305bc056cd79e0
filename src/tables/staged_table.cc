// A rewritten lookup table, built beside the one it replaces and renamed over it in one step.
#include "tables/staged_table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

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

}  // namespace

StagedTable::StagedTable(const std::string& table)
    : path_(tablePath(table)), suffix_(indexSuffix(table))
{
    const fs::path path = fs::absolute(path_);
    const std::string prefix = "." + path.filename().string() + ".tmp.";
    removeLeftovers(path, prefix);
    try {
        text_ = std::make_unique<TmpFile>((path.parent_path() / prefix).string());
    } catch (const SystemError& e) {
        throw PostfixConfigurationError("unable to create the new text of " + table + ": " + e.what());
    }
    name_ = typePrefix(table) + text_->path();
    built_ = text_->path() + suffix_;
}

StagedTable::~StagedTable()
{
    if (!installed_)
        ::unlink(built_.c_str());
}

void StagedTable::closeText()
{
    if (!text_->close())
        fail("write", text_->path());
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
