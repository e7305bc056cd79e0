// Temporary folders with key files for the cipher and password-database tests.
#pragma once

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <string>

#include "support/io.h"

// A fresh folder under the system temporary folder, removed with everything in it.
class TempDir {
public:
    TempDir()
    {
        std::string pattern = (boost::filesystem::temp_directory_path() / "mailrig-auth.XXXXXX").string();
        path_ = ::mkdtemp(&pattern[0]) ? pattern : std::string();
    }
    ~TempDir() { boost::filesystem::remove_all(path_); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// 32 fixed key bytes: 0x00 + seed, 0x01 + seed, ...
inline std::string fixedKey(unsigned char seed)
{
    std::string key(32, '\0');
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<char>(i + seed);
    return key;
}

inline std::string hex(const std::string& bytes)
{
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}
