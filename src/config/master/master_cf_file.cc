// Loading and storing master.cf-format files.
#include "config/master/master_cf_file.h"

#include <sys/stat.h>

#include <cerrno>

#include "config/master/master_cf_grammar.h"
#include "runtime/errors.h"
#include "services/process/mk_lock.h"
#include "services/process/tmp_file.h"
#include "storage/fs_error.h"

namespace quelt::mail::postfix {

namespace {

// A file of no bytes cannot be mapped, yet it is what storing an emptied content leaves.
bool isEmptyFile(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_size == 0;
}

}  // namespace

void loadMasterCf(const std::string& path, std::unique_ptr<MasterCfContent>& content)
{
    if (isEmptyFile(path)) {
        content = std::make_unique<MasterCfContent>();
        return;
    }
    bool opened = false;
    std::unique_ptr<MasterCfContent> parsed = parseMappedMasterCf(path, opened);
    if (!opened)
        throw PostfixConfigurationError("unable to open " + path);
    if (!parsed)
        throw PostfixConfigurationError("unable to parse " + path);
    content = std::move(parsed);
}

void storeMasterCf(const std::string& path, const MasterCfContent& content)
{
    MKLock lock(path, MKLock::ByKey, MKLock::Wait);
    TmpFile tmp(path);
    tmp.exceptions(std::ios_base::badbit | std::ios_base::failbit);
    content.write(tmp);
    if (::chmod(tmp.path().c_str(), 0644) != 0)
        throw FSError("chmod", tmp.path(), errno);
    tmp.close();
    if (::rename(tmp.path().c_str(), path.c_str()) != 0)
        throw FSError("rename", tmp.path(), path, errno);  // autoclean removes the temporary file
    tmp.keep();
}

}  // namespace quelt::mail::postfix
