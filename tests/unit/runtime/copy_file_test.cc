// Copying files, finding a process by its executable, and the feature line printer.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "support/capture.h"
#include "runtime/copy_file.h"
#include "runtime/proc_info.h"

namespace {

std::string slurp(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(CopyFile, CopiesContentAndModeAndFailsOnAMissingSource)
{
    std::string content;
    for (int i = 0; i < 3000; ++i)
        content += "row " + std::to_string(i) + "\n";
    std::ofstream("/tmp/copy-src") << content;
    ASSERT_EQ(::chmod("/tmp/copy-src", 0640), 0);
    ::unlink("/tmp/copy-dst");
    EXPECT_EQ(copy_file("/tmp/copy-src", "/tmp/copy-dst"), 0);
    EXPECT_TRUE(slurp("/tmp/copy-dst") == content);
    struct stat info {};
    ASSERT_EQ(::stat("/tmp/copy-dst", &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);

    CaptureFd err(2);
    EXPECT_EQ(copy_file("/tmp/no-such-source", "/tmp/copy-dst"), 1);
    err.restore();
    EXPECT_EQ(err.text().rfind("Unable to open file /tmp/no-such-source: No such file or directory\n", 0), 0u)
        << err.text();
    EXPECT_TRUE(slurp("/tmp/copy-dst") == content);
}

TEST(CopyFile, AtomicCopyTakesOwnerGroupAndMode)
{
    std::ofstream("/tmp/atomic-src") << "payload\n";
    std::ofstream("/tmp/atomic-dst") << "old\n";
    copy_file_atomic("/tmp/atomic-src", "/tmp/atomic-dst", 65534, 65534, 0600);
    EXPECT_EQ(slurp("/tmp/atomic-dst"), "payload\n");
    struct stat info {};
    ASSERT_EQ(::stat("/tmp/atomic-dst", &info), 0);
    EXPECT_EQ(info.st_uid, 65534u);
    EXPECT_EQ(info.st_gid, 65534u);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST(CopyFile, AtomicCopyFailureEndsTheProcess)
{
    EXPECT_EXIT(copy_file_atomic("/tmp/no-such-source", "/tmp/atomic-dst", 0, 0, 0600),
                ::testing::ExitedWithCode(1),
                "copy_file_atomic\\(/tmp/no-such-source -> /tmp/atomic-dst\\): open failed");
}

TEST(ProcInfo, FindsAProcessByItsExactExecutable)
{
    char self[PATH_MAX] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const pid_t found = findProcessByPath(self);
    ASSERT_GT(found, 0);
    char other[PATH_MAX] = {};
    ASSERT_GT(::readlink(("/proc/" + std::to_string(found) + "/exe").c_str(), other, sizeof other - 1), 0);
    EXPECT_STREQ(other, self);
    EXPECT_EQ(findProcessByPath(std::string(self) + "x"), -1);
    EXPECT_EQ(findProcessByPath(std::string(self).substr(0, std::string(self).size() - 1)), -1);
}

TEST(ProcInfo, PrintFeatureQuotesAllButBooleans)
{
    CaptureFd out(1);
    EXPECT_EQ(print_feature("smtp_auth", "true"), 0);
    EXPECT_EQ(print_feature("relay", "false"), 0);
    EXPECT_EQ(print_feature("max_letter_size", "10240"), 0);
    EXPECT_EQ(print_feature("mode", "True"), 0);
    out.restore();
    EXPECT_EQ(out.text(), "$features['smtp_auth'] = true;\n"
                          "$features['relay'] = false;\n"
                          "$features['max_letter_size'] = \"10240\";\n"
                          "$features['mode'] = \"True\";\n");
}

}  // namespace
