// The SPF checker's parameter files under /etc/zvt-spf.
#include "config/files/spf.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "runtime/log.h"

namespace {

constexpr const char* kSpfDir = "/etc/zvt-spf/";

// 0, or -1 after printing why.
int writeValue(const std::string& path, const std::string& value)
{
    std::ofstream file(path, std::ios_base::out | std::ios_base::trunc | std::ios_base::binary);
    if (!file.is_open()) {
        messlog2(0, 0, "Unable to open file %s for writing: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    file << value;
    file.close();
    if (file.fail()) {
        messlog2(0, 0, "Unable to close file %s: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace

int update_spf(const std::optional<std::string>& behavior, const std::optional<std::string>& rules,
               const std::optional<std::string>& guess, const std::optional<std::string>& exp)
{
    const struct {
        const std::optional<std::string>& value;
        const char* file;
        const char* parameter;
    } settings[] = {
        {behavior, "spfbehavior", "spf_behavior"},
        {rules, "spfrules", "spf_rules"},
        {guess, "spfguess", "spf_guess"},
        {exp, "spfexp", "spf_exp"},
    };
    for (const auto& setting : settings) {
        if (!setting.value)
            continue;
        if (writeValue(std::string(kSpfDir) + setting.file, *setting.value) != 0) {
            messlog2(0, 0, "Unable to update '%s' parameter", setting.parameter);
            return -1;
        }
    }
    return 0;
}
