// libFuzzer target of the panel configuration file reader: whatever the file holds, every
// stored name is a run of name characters, every value is trimmed and holds no comment, and a
// second read of the same file gives the same pairs.
#include <sys/mman.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <string>

#include "fuzz_check.h"
#include "runtime/zvt_conf.h"

namespace {

bool isName(const std::string& key)
{
    if (key.empty())
        return false;
    for (const char c : key)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_')
            return false;
    return true;
}

bool trimmed(const std::string& value)
{
    return !value.empty() && !std::isspace(static_cast<unsigned char>(value.front())) &&
           !std::isspace(static_cast<unsigned char>(value.back())) &&
           value.find('#') == std::string::npos && value.find('\n') == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const int fd = ::memfd_create("zvt.conf", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        fuzzFailure("zvt.conf", "cannot write the input file");
    conf_data first, second;
    if (conf_read_file_r(path.c_str(), first) != 0 || conf_read_file_r(path.c_str(), second) != 0)
        fuzzFailure("zvt.conf", "a readable file was refused");
    if (first.data.size() != second.data.size())
        fuzzFailure("zvt.conf", "two reads differ");
    for (std::size_t i = 0; i < first.data.size(); ++i) {
        const conf_entry& entry = first.data[i];
        if (!isName(entry.key) || !trimmed(entry.value))
            fuzzFailure("zvt.conf", "a stored pair is not a name and a trimmed value");
        if (i > 0 && !(first.data[i - 1].key < entry.key))
            fuzzFailure("zvt.conf", "names are not sorted and unique");
        const auto found = conf_get_r(entry.key, first);
        if (!found || *found != entry.value || second.data[i].value != entry.value)
            fuzzFailure("zvt.conf", "a stored name does not give back its value");
    }
    return 0;
}
