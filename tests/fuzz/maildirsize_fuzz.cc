// libFuzzer target of the maildirsize reader and of the message size in Maildir file names:
// trusted text sums to what its lines say, the limits written back read the same, and a name's
// size is one the name states in digits.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_check.h"
#include "storage/maildirpp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    MaildirppQuota quota;
    const bool trusted = parse_maildirsize(text, quota);
    if (trusted && text.size() > kMaildirsizeMaxTrusted)
        fuzzFailure("maildirsize", "an overlong file is trusted");
    if (trusted && !text.empty() && text.back() != '\n')
        fuzzFailure("maildirsize", "a file cut short is trusted");
    // The usage line has fixed 12-byte columns: a count of 12 digits or more runs into the bytes
    // (only a file summing to a negative count gives one; a scan never does).
    if (trusted && quota.count < 100000000000ULL && quota.bytes > -10000000000LL) {
        // The limits and the usage written back must read as themselves.
        if (const auto again = format_maildirsize(quota.byteLimit, quota.countLimit, quota.bytes, quota.count)) {
            MaildirppQuota reread;
            if (!parse_maildirsize(*again, reread) || reread.byteLimit != quota.byteLimit ||
                reread.countLimit != quota.countLimit || reread.bytes != quota.bytes ||
                reread.count != quota.count)
                fuzzFailure("maildirsize", "written limits and usage do not read back");
        }
    }
    const std::string name = text.substr(0, text.find('\0'));
    if (const auto stated = maildir_name_size(name.c_str())) {
        bool stated_here = false;
        for (auto at = name.find(",S="); at != std::string::npos && !stated_here; at = name.find(",S=", at + 1)) {
            const auto digits = name.find_first_not_of("0123456789", at + 3);
            stated_here = digits != at + 3 && (digits == std::string::npos || name[digits] == ':') &&
                          std::strtoull(name.c_str() + at + 3, nullptr, 10) == *stated;
        }
        if (!stated_here)
            fuzzFailure("maildirsize", "a message size the name does not state");
    }
    if (is_maildirpp_folder_name(name.c_str()) &&
        (name.size() < 2 || name[0] != '.' || name[1] == '.' || name == ".Trash"))
        fuzzFailure("maildirsize", "a folder name that is no folder");
    return 0;
}
