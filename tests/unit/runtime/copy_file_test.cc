// Copying a file: its content and mode, and a missing source.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "runtime/copy_file.h"
#include "support/capture.h"
#include "support/io.h"

namespace {

TEST(CopyFile, CopiesContentAndModeAndFailsOnAMissingSource)
{
    std::string content;
    for (int i = 0; i < 3000; ++i)
        content += "row " + std::to_string(i) + "\n";
    writeFile("/tmp/copy-src", content);
    ASSERT_EQ(::chmod("/tmp/copy-src", 0640), 0);
    ::unlink("/tmp/copy-dst");
    EXPECT_EQ(copy_file("/tmp/copy-src", "/tmp/copy-dst"), 0);
    EXPECT_TRUE(readFile("/tmp/copy-dst") == content);
    EXPECT_EQ(lstatOf("/tmp/copy-dst").st_mode & 07777, 0640u);

    const std::string err = stderrOf([] { EXPECT_EQ(copy_file("/tmp/no-such-source", "/tmp/copy-dst"), 1); });
    EXPECT_EQ(err.rfind("Unable to open file /tmp/no-such-source: No such file or directory\n", 0), 0u) << err;
    EXPECT_TRUE(readFile("/tmp/copy-dst") == content);
}

}  // namespace
