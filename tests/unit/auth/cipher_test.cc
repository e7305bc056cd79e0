// The password cipher: stored form, round trips, the openssl command as referee, key files
// and context references.
#include "auth/cipher.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "auth/base64.h"
#include "key_files.h"
#include "support/capture.h"

namespace {

// Base64 of what `openssl enc` makes of `plain` under the key and IV (an independent referee).
std::string opensslEncrypt(const TempDir& dir, const std::string& plain, const std::string& key,
                           const std::string& iv, bool noPad)
{
    writeFile(dir.file("plain.bin"), plain);
    return shellOutput("openssl enc -aes-256-cbc -base64 -A " + std::string(noPad ? "-nopad " : "") + "-K " +
                       hex(key) + " -iv " + hex(iv) + " -in " + dir.file("plain.bin"));
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
        writeFile(dir_.file("key"), fixedKey(7));
        ASSERT_TRUE(mail_aes_init(dir_.file("key")));
    }
    void TearDown() override { mail_aes_cleanup(); }

    TempDir dir_;
};

// Well-formed text of each padding, and binary bytes, go both ways in the cipher's tests (against
// the openssl command); text that is not well formed is refused.
TEST(Base64, RefusesMalformedText)
{
    for (const char* text : {"Zg=", "Z===", "Zg=a", "Zm9v\n", "Zm9", "Zm!v", "=Zm9"})
        EXPECT_FALSE(b64_decode(text)) << text;
}

TEST_F(CipherTest, StoredFormDecryptsBackAndDiffersEachTime)
{
    const auto first = mail_aes_encrypt("s3cret pass");
    const auto second = mail_aes_encrypt("s3cret pass");
    ASSERT_TRUE(first && second);
    EXPECT_NE(*first, *second);
    for (const auto& text : {*first, *second}) {
        EXPECT_TRUE(is_encrypted_with_mail_aes(text.c_str())) << text;
        const Stored parts = split(text);
        EXPECT_EQ(parts.name, "AES-256-CBC:PKCS");
        EXPECT_EQ(b64_decode(parts.iv).value_or("").size(), 16u) << text;
        EXPECT_EQ(mail_aes_decrypt(text.c_str()), std::optional<std::string>("s3cret pass")) << text;
    }
}

// The padded form under the password key.
TEST_F(CipherTest, FixedIvMatchesOpensslCommand)
{
    const std::string iv = "0123456789abcdef";
    const std::string header = "$AES-256-CBC:PKCS$" + b64_encode(iv);
    for (const std::string plain : {"", "password", "exactly16bytes!!", "a longer password with blanks, 33"}) {
        const auto text = quelt_cipher_crypt(plain, header);
        EXPECT_EQ(text.value_or("-"), header + "$" + opensslEncrypt(dir_, plain, fixedKey(7), iv, false)) << plain;
        EXPECT_EQ(mail_aes_decrypt(text.value_or("-").c_str()).value_or("-"), plain) << plain;
    }
}

TEST_F(CipherTest, ForeignDamagedOrWronglyKeyedTextDoesNotDecrypt)
{
    for (const char* text : {static_cast<const char*>(nullptr), "plain", "$AES-128-CBC:PKCS$abc$def", ""}) {
        errno = 0;
        EXPECT_FALSE(mail_aes_decrypt(text)) << (text ? text : "(null)");
        EXPECT_EQ(errno, EINVAL) << (text ? text : "(null)");
    }
    EXPECT_FALSE(is_encrypted_with_mail_aes("$AES-256-CBC:PKC$"));

    const auto text = mail_aes_encrypt("pw");
    ASSERT_TRUE(text);
    const Stored parts = split(*text);
    errno = 0;
    EXPECT_FALSE(mail_aes_decrypt(("$AES-256-CBC:PKCS$" + b64_encode("short") + "$" + parts.data).c_str()));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(mail_aes_decrypt(("$AES-256-CBC:PKCS$" + parts.iv + "$not base64!").c_str()));

    mail_aes_cleanup();
    writeFile(dir_.file("other"), fixedKey(8));
    ASSERT_TRUE(mail_aes_init(dir_.file("other")));
    EXPECT_NE(mail_aes_decrypt(text->c_str()), std::optional<std::string>("pw"));
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

TEST(CipherContexts, ReferencesKeepTheContextUntilTheLastCleanup)
{
    TempDir dir;
    writeFile(dir.file("key"), fixedKey(9) + "bytes beyond the key are ignored");
    ASSERT_TRUE(mail_aes_init(dir.file("key")));
    ASSERT_TRUE(mail_aes_init(dir.file("missing"))) << "a second init reads no key";
    mail_aes_cleanup();
    EXPECT_TRUE(mail_aes_encrypt("still usable"));
    mail_aes_cleanup();
    EXPECT_FALSE(mail_aes_encrypt("gone"));
    EXPECT_EQ(stderrOf([] { mail_aes_cleanup(); }),
              "Failed to correctly destroy encryption cipher 'AES-256-CBC:PKCS'. A programming error?\n");
}

}  // namespace
