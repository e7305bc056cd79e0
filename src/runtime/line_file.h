// Line-by-line edits of small text files (crontabs, configuration lists) under a lock file,
// replacing the file through "<path>.tmp" and keeping its owner, group and mode.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// Actions of file_strings.
constexpr int FILE_STR_ADD = 0;             // add the lines; position FRONT or BACK
constexpr int FILE_STR_REMOVE = 1;          // remove the lines equal to one of them
constexpr int FILE_STR_REMOVE_MATCHING = 2; // remove the lines matching: PREFIX, SUFFIX, SUBSTRING

// Positions.
constexpr int FILE_STR_FRONT = 0;
constexpr int FILE_STR_BACK = 1;
constexpr int FILE_STR_PREFIX = 0;
constexpr int FILE_STR_SUFFIX = 1;
constexpr int FILE_STR_SUBSTRING = 2;

// Edits `path` holding the lock of mk_lock(path, hash). Lines compare without their trailing
// newline. Adding at the front needs the file to exist; adding at the back creates it. An
// existing file keeps owner, group and mode. Returns 0, or 1 after printing why (messlog2);
// a failing write of the temporary file ends the process.
int file_strings(const std::string& path, const std::vector<std::string>& lines, int action,
                 int position);
// file_strings with the one line.
int file_str(const std::string& path, const std::string& line, int action, int position);

// Writes each line, adding "\n" to those that do not end with one: 0, or -1 when a write fails.
int write_strings(std::FILE* stream, const std::vector<std::string>& lines);
