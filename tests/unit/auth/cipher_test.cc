// The password cipher: its stored form, with the openssl command as referee, and key files.
#include "auth/cipher.h"

#include <gtest/gtest.h>

#include "auth/base64.h"
#include "key_files.h"
#include "support/capture.h"

namespace {

// Base64 of what `openssl enc` makes of `plain` under the key and IV (an independent referee).
std::string opensslEncrypt(const TempDir& dir, const std::string& plain, const std::string& key,
                           const std::string& iv)
{
    writeFile(dir.file("plain.bin"), plain);
    return shellOutput("openssl enc -aes-256-cbc -base64 -A -K " + hex(key) + " -iv " + hex(iv) + " -in " +
                       dir.file("plain.bin"));
}

// The three pieces of "$name$iv$data".
struct Stored {
    std::string name, iv, data;
};
Stored split(const std::string& text)
{
    const auto second = text.find('$', 1);
    const auto last = text.rfind('$');
    return {text.substr(1, second - 1), text.substr(second + 1, last - second - 1), text.substr(last + 1)};
}

class CipherTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        writeFile(dir_.file("key"), fixedKey(7) + "bytes beyond the key are ignored");
        ASSERT_TRUE(mail_aes_init(dir_.file("key")));
    }
    void TearDown() override { mail_aes_cleanup(); }

    TempDir dir_;
};

// "$AES-256-CBC:PKCS$<IV>$<data>": a fresh IV each time, and the data what the openssl command
// makes of the password under the key and that IV, padded whatever the length.
TEST_F(CipherTest, StoredFormMatchesOpensslWithAFreshIvEachTime)
{
    for (const std::string plain : {"", "password", "exactly16bytes!!", "a longer password with blanks, 33"}) {
        const auto first = mail_aes_encrypt(plain);
        const auto second = mail_aes_encrypt(plain);
        ASSERT_TRUE(first && second) << plain;
        EXPECT_NE(*first, *second) << plain;
        for (const auto& text : {*first, *second}) {
            EXPECT_EQ(text.rfind("$AES-256-CBC:PKCS$", 0), 0u) << text;
            const Stored parts = split(text);
            const std::string iv = b64_decode(parts.iv).value_or("");
            EXPECT_EQ(iv.size(), 16u) << text;
            EXPECT_EQ(parts.data, opensslEncrypt(dir_, plain, fixedKey(7), iv)) << text;
        }
    }
}

TEST(CipherKeys, ShortKeyFileFailsWithMessages)
{
    TempDir dir;
    const std::string shortKey = dir.file("short");
    writeFile(shortKey, std::string(31, 'k'));
    EXPECT_EQ(stderrOf([&] { EXPECT_FALSE(mail_aes_init(shortKey)); }),
              "Failed to read entire encryption key from '" + shortKey + "': Success (0)\n"
              "Failed to initialize encryption cipher 'AES-256-CBC:PKCS' with key '" + shortKey + "'\n");
    EXPECT_FALSE(mail_aes_encrypt("pw")) << "no context may be left behind";
}

}  // namespace
