// Copying whole files: under the destination's lock, or atomically into place.
#pragma once

#include <sys/types.h>

#include <string>

// Copies `source` over `destination` (or to standard output for "-") with the source's mode,
// holding the lock of mk_lock(destination, true). 0, or 1 after printing why.
int copy_file(const std::string& source, const std::string& destination);

// Writes a copy beside `destination` ("<destination>.XXXXXX"), gives it `owner`, `group` and
// `mode`, and renames it over `destination`. Any failure ends the process (status 1).
void copy_file_atomic(const std::string& source, const std::string& destination, uid_t owner,
                      gid_t group, mode_t mode);
