// Whole-file reads and writes, a shell command's output and this process's open descriptors,
// for the unit tests' own checks.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    EXPECT_TRUE(out.good()) << path;
}

// The entry itself, not what a link points at.
inline struct stat lstatOf(const std::string& path)
{
    struct stat info {};
    EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
    return info;
}

inline bool exists(const std::string& path)
{
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

inline std::string shellOutput(const std::string& command)
{
    std::string out;
    if (std::FILE* p = ::popen(command.c_str(), "r")) {
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
            out.append(buf, n);
        ::pclose(p);
    }
    return out;
}

inline int openDescriptors()
{
    int count = 0;
    DIR* dir = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(dir))
        count += entry->d_name[0] != '.';
    ::closedir(dir);
    return count;
}
