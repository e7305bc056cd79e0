// Small lookups and printers of the procedural modules.
#include "runtime/proc_info.h"

#include <dirent.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "runtime/log.h"

namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

bool isNumber(const char* text)
{
    if (!*text)
        return false;
    for (; *text; ++text)
        if (*text < '0' || *text > '9')
            return false;
    return true;
}

}  // namespace

pid_t findProcessByPath(const std::string& path)
{
    std::unique_ptr<DIR, DirCloser> proc(::opendir("/proc"));
    if (!proc) {
        quelt_log(3, "unable to open /proc filesystem: %s\n", std::strerror(errno));
        return -1;
    }
    char target[PATH_MAX];
    while (const struct dirent* entry = ::readdir(proc.get())) {
        if (!isNumber(entry->d_name))
            continue;
        const std::string link = std::string("/proc/") + entry->d_name + "/exe";
        const ssize_t n = ::readlink(link.c_str(), target, sizeof target);
        if (n <= 0 || static_cast<std::size_t>(n) >= sizeof target)
            continue;
        if (path.compare(0, std::string::npos, target, static_cast<std::size_t>(n)) == 0)
            return static_cast<pid_t>(std::atol(entry->d_name));
    }
    return -1;
}

int print_feature(const std::string& name, const std::string& value)
{
    const bool boolean = value == "true" || value == "false";
    const int n = boolean ? std::printf("$features['%s'] = %s;\n", name.c_str(), value.c_str())
                          : std::printf("$features['%s'] = \"%s\";\n", name.c_str(), value.c_str());
    return n < 0 ? -1 : 0;
}
