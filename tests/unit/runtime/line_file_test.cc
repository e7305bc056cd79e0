// Line edits of files: which lines go, where added lines land, owner and mode kept, no
// temporary file left behind.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/line_file.h"
#include "runtime/lock_file.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

const std::string kPath = "/etc/mailrig-line-test";

void put(const std::string& text)
{
    ::unlink(kPath.c_str());
    writeFile(kPath, text);
}

TEST(FileStrings, RemovesEveryCopyComparingWithoutTheNewlineAndKeepsOwnerAndMode)
{
    put("a\nb\nc\nb\nlast");
    ASSERT_EQ(::chown(kPath.c_str(), 65534, 65534), 0);
    ASSERT_EQ(::chmod(kPath.c_str(), 0604), 0);
    EXPECT_EQ(file_str(kPath, "b", FILE_STR_REMOVE, 0), 0);
    EXPECT_EQ(readFile(kPath), "a\nc\nlast");
    struct stat info {};
    ASSERT_EQ(::stat(kPath.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 65534u);
    EXPECT_EQ(info.st_gid, 65534u);
    EXPECT_EQ(info.st_mode & 07777, 0604u);
    EXPECT_FALSE(exists(kPath + ".tmp"));
    EXPECT_TRUE(exists(mk_flock_path(kPath)));

    EXPECT_EQ(file_strings(kPath, {"c\n", "last\n", "a c"}, FILE_STR_REMOVE, 0), 0);
    EXPECT_EQ(readFile(kPath), "a\n");
    ::unlink(kPath.c_str());
    stderrOf([] { EXPECT_EQ(file_str(kPath, "x", FILE_STR_REMOVE, 0), 1); });
    EXPECT_FALSE(exists(kPath));
}

TEST(FileStrings, AddsAtTheFrontAndAtTheBackButCreatesOnlyAtTheBack)
{
    put("old1\nold2\n");
    EXPECT_EQ(file_strings(kPath, {"new1", "new2\n"}, FILE_STR_ADD, FILE_STR_FRONT), 0);
    EXPECT_EQ(readFile(kPath), "new1\nnew2\nold1\nold2\n");
    EXPECT_EQ(file_str(kPath, "tail", FILE_STR_ADD, FILE_STR_BACK), 0);
    EXPECT_EQ(file_str(kPath, "ignored", FILE_STR_ADD, 7), 0);
    EXPECT_EQ(readFile(kPath), "new1\nnew2\nold1\nold2\ntail\n");
    EXPECT_FALSE(exists(kPath + ".tmp"));

    ::unlink(kPath.c_str());
    const std::string err = stderrOf([] { EXPECT_EQ(file_str(kPath, "first", FILE_STR_ADD, FILE_STR_FRONT), 1); });
    EXPECT_NE(err.find("Unable to open file " + kPath + ": No such file or directory\n"), std::string::npos) << err;
    EXPECT_FALSE(exists(kPath));
    EXPECT_FALSE(exists(kPath + ".tmp"));
    EXPECT_EQ(file_str(kPath, "first", FILE_STR_ADD, FILE_STR_BACK), 0);
    EXPECT_EQ(readFile(kPath), "first\n");
}

TEST(FileStrings, RemovesByPrefixSuffixAndSubstring)
{
    const std::string text = "MAILTO=root\n*/5 * * * * /usr/bin/job --x\nkeep me\n# job note\nroot job\n";
    const struct {
        int position;
        const char* pattern;
        const char* want;
    } cases[] = {
        {FILE_STR_PREFIX, "*/5", "MAILTO=root\nkeep me\n# job note\nroot job\n"},
        {FILE_STR_PREFIX, "job", text.c_str()},
        {FILE_STR_SUFFIX, "job", "MAILTO=root\n*/5 * * * * /usr/bin/job --x\nkeep me\n# job note\n"},
        {FILE_STR_SUFFIX, "--x", "MAILTO=root\nkeep me\n# job note\nroot job\n"},
        {FILE_STR_SUBSTRING, "job", "MAILTO=root\nkeep me\n"},
        {FILE_STR_SUBSTRING, "absent", text.c_str()},
    };
    for (const auto& c : cases) {
        put(text);
        EXPECT_EQ(file_str(kPath, c.pattern, FILE_STR_REMOVE_MATCHING, c.position), 0);
        EXPECT_EQ(readFile(kPath), c.want) << "position " << c.position << " pattern " << c.pattern;
    }
    EXPECT_FALSE(exists(kPath + ".tmp"));
}

TEST(FileStrings, WriteStringsEndsEachLineOnce)
{
    std::FILE* out = std::tmpfile();
    ASSERT_EQ(write_strings(out, {"a", "b\n", "", "c"}), 0);
    std::rewind(out);
    char buffer[32] = {};
    const std::size_t n = std::fread(buffer, 1, sizeof buffer, out);
    std::fclose(out);
    EXPECT_EQ(std::string(buffer, n), "a\nb\n\nc\n");
}

}  // namespace
