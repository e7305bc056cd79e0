// Maildir++ quotas: the two-line maildirsize file, Maildir usage and over-quota decisions.
// The functions change the working directory while they run and restore it before they
// return. Results: 1 success, 0 failure; failures are printed through messlog2.
#pragma once

#include <sys/types.h>

#include <climits>
#include <ctime>
#include <optional>
#include <string>

// Limits that mean "no limit" when read from an unusable maildirsize.
constexpr long long kMaildirppNoByteLimit = LLONG_MAX;
constexpr unsigned long long kMaildirppNoCountLimit = ULLONG_MAX;
// Longest maildirsize that is trusted.
constexpr size_t kMaildirsizeMaxTrusted = 5120;

struct MaildirppUsage {
    long long bytes = 0;
    unsigned long long count = 0;
    std::time_t newest = 0;  // newest modification time of the scanned folders
};

struct MaildirppQuota {
    long long bytes = 0;
    unsigned long long count = 0;
    long long byteLimit = kMaildirppNoByteLimit;
    unsigned long long countLimit = kMaildirppNoCountLimit;
};

// The size a ",S=<digits>" in a message file name states (first usable occurrence, ending at
// ':' or the end of the name), or nothing.
std::optional<unsigned long long> maildir_name_size(const char* name);

// Whether a directory entry of a Maildir names one of its Maildir++ folders: ".x", not "..x",
// not "." itself, and not ".Trash", whose mail is not counted.
bool is_maildirpp_folder_name(const char* name);

// Scans the Maildir that is the working directory: new/ and cur/ and those of its folders
// (".x" names, not "..x", not ".Trash"). Unreadable folders count as empty.
MaildirppUsage scan_maildirpp_usage();

// Parses maildirsize text; false when it is not to be trusted (then the limits are unlimited
// if the definition line was bad).
bool parse_maildirsize(const std::string& text, MaildirppQuota& quota);

// "%lldS,%lluC\n%12lld%12llu\n"; nothing when the text would be 100 bytes or more.
std::optional<std::string> format_maildirsize(long long byteLimit, unsigned long long countLimit,
                                              long long bytes, unsigned long long count);

// Writes <maildir>/maildirsize owned by uid:gid: the limits and a freshly scanned usage line.
// Backdates the file by 960 s past the scan reference when folders changed during the scan.
int write_maildirpp_maildirsize(const std::string& maildir, uid_t uid, gid_t gid,
                                long long byteLimit, unsigned long long countLimit);

// Writes the quota (negative: no limit, 0: one byte) with count limit 0, owned by popuser.
int store_maildirpp_quota_raw(const std::string& maildir, long long quota);

// Usage and limits from maildirsize. A missing, unreadable, too long or untrusted file is a
// failure when `strict`, otherwise replaced by a scan with unlimited limits.
int get_maildirpp_usage_and_limits(const std::string& maildir, bool strict, long long& bytes,
                                   unsigned long long& count, long long& byteLimit,
                                   unsigned long long& countLimit);
int get_maildirpp_usage(const std::string& maildir, long long& bytes, unsigned long long& count);

// 1 when a message of addBytes/addCount would exceed a limit (0 limits are unlimited); 0 when
// it fits or the limits cannot be read strictly.
int check_maildirpp_overquota(const std::string& maildir, long long addBytes,
                              unsigned long long addCount);

// Size of the path and everything below it (links not followed): bytes, or allocated 512-byte
// blocks times 512 when `inBlocks`. -1 when the path cannot be examined.
long long get_dir_size(const std::string& path, bool inBlocks);
