// Line edits of files: which lines go, where added lines land, owner and mode kept, no
// temporary file left behind.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/line_file.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

const std::string kPath = "/etc/mailrig-line-test";

TEST(FileStrings, EachEditChangesExactlyItsLinesAndKeepsOwnerAndMode)
{
    const std::string text = "MAILTO=root\n*/5 * * * * /usr/bin/job --x\nkeep me\n# job note\nroot job\nkeep me";
    const struct {
        int action, position;
        std::vector<std::string> lines;
        std::string want;
    } cases[] = {
        {FILE_STR_REMOVE, 0, {"keep me"}, "MAILTO=root\n*/5 * * * * /usr/bin/job --x\n# job note\nroot job\n"},
        {FILE_STR_REMOVE, 0, {"keep"}, text},
        {FILE_STR_ADD, FILE_STR_BACK, {"tail"}, text + "tail\n"},
        {FILE_STR_REMOVE_MATCHING, FILE_STR_PREFIX, {"*/5"}, "MAILTO=root\nkeep me\n# job note\nroot job\nkeep me"},
        {FILE_STR_REMOVE_MATCHING, FILE_STR_PREFIX, {"job"}, text},
    };
    for (const auto& c : cases) {
        ::unlink(kPath.c_str());
        writeFile(kPath, text);
        ASSERT_EQ(::chown(kPath.c_str(), 65534, 65534), 0);
        ASSERT_EQ(::chmod(kPath.c_str(), 0604), 0);
        EXPECT_EQ(file_strings(kPath, c.lines, c.action, c.position), 0) << c.lines.front();
        EXPECT_EQ(readFile(kPath), c.want) << c.lines.front();
        const struct stat info = lstatOf(kPath);
        EXPECT_EQ(info.st_uid, 65534u) << c.lines.front();
        EXPECT_EQ(info.st_mode & 07777, 0604u) << c.lines.front();
        EXPECT_FALSE(exists(kPath + ".tmp")) << c.lines.front();
    }
    ::unlink(kPath.c_str());
    EXPECT_EQ(file_str(kPath, "first", FILE_STR_ADD, FILE_STR_BACK), 0);
    EXPECT_EQ(readFile(kPath), "first\n");
    ::unlink(kPath.c_str());
}

}  // namespace
