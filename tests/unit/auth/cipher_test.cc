// The password cipher: stored form, round trips, the openssl command as referee, key files
// and context references.
#include "auth/cipher.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "support/capture.h"
#include "auth/base64.h"
#include "key_files.h"

namespace {

// Base64 of what `openssl enc` makes of `plain` under the key and IV (an independent referee).
std::string opensslEncrypt(const TempDir& dir, const std::string& plain, const std::string& key,
                           const std::string& iv, bool noPad)
{
    const std::string input = dir.file("plain.bin");
    writeFile(input, plain);
    const std::string command = "openssl enc -aes-256-cbc -base64 -A " + std::string(noPad ? "-nopad " : "") +
                                "-K " + hex(key) + " -iv " + hex(iv) + " -in " + input;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string out;
    char buf[512];
    std::size_t n;
    while (pipe && (n = std::fread(buf, 1, sizeof buf, pipe.get())) > 0)
        out.append(buf, n);
    return out;
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
        keyPath_ = dir_.file("key");
        writeFile(keyPath_, fixedKey(7));
        ASSERT_TRUE(mail_aes_init(keyPath_));
    }
    void TearDown() override { mail_aes_cleanup(); }

    TempDir dir_;
    std::string keyPath_;
};

TEST(Base64, Rfc4648Vectors)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {std::string("\0\xff\x10", 3), "AP8Q"},
    };
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(b64_encode(bytes), text) << bytes;
        EXPECT_EQ(b64_decode(text), std::optional<std::string>(bytes)) << text;
    }
}

TEST(Base64, MalformedTextIsRefused)
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
        EXPECT_EQ(parts.iv.size(), 24u) << text;
        EXPECT_EQ(parts.iv.substr(22), "==") << text;
        EXPECT_EQ(mail_aes_decrypt(text.c_str()), std::optional<std::string>("s3cret pass")) << text;
    }
}

TEST_F(CipherTest, CiphertextLengthFollowsPkcsPadding)
{
    for (std::size_t length : {0u, 1u, 15u, 16u, 17u, 31u, 32u, 100u}) {
        const std::string plain(length, 'p');
        const auto text = mail_aes_encrypt(plain);
        ASSERT_TRUE(text) << length;
        const auto data = b64_decode(split(*text).data);
        ASSERT_TRUE(data) << *text;
        EXPECT_EQ(data->size(), 16 * (length / 16 + 1)) << length;
        EXPECT_EQ(mail_aes_decrypt(text->c_str()), std::optional<std::string>(plain)) << length;
    }
}

TEST_F(CipherTest, FixedIvMatchesOpensslCommand)
{
    const std::string iv = "0123456789abcdef";
    for (const std::string plain : {"", "x", "password", "exactly16bytes!!", "a longer password with blanks"}) {
        const auto text = quelt_cipher_crypt(plain, "$AES-256-CBC:PKCS$" + b64_encode(iv));
        ASSERT_TRUE(text) << plain;
        EXPECT_EQ(*text, "$AES-256-CBC:PKCS$" + b64_encode(iv) + "$" +
                             opensslEncrypt(dir_, plain, fixedKey(7), iv, false))
            << plain;
    }
}

TEST(CipherZeroPadding, MatchesOpensslOnZeroFilledBlocks)
{
    TempDir dir;
    writeFile(dir.file("key"), fixedKey(3));
    ASSERT_TRUE(quelt_cipher_init("AES-256-CBC", dir.file("key")));
    const std::string iv(16, '\x5a');
    for (const std::string plain : {"", "abc", "exactly16bytes!!", "seventeen bytes.."}) {
        std::string filled = plain;
        filled.append(plain.empty() ? 16 : (16 - plain.size() % 16) % 16, '\0');
        const auto text = quelt_cipher_crypt(plain, "$AES-256-CBC$" + b64_encode(iv));
        ASSERT_TRUE(text) << plain;
        EXPECT_EQ(split(*text).data, opensslEncrypt(dir, filled, fixedKey(3), iv, true)) << plain;
    }
    quelt_cipher_cleanup("AES-256-CBC");
}

TEST_F(CipherTest, ForeignOrNullTextIsRefusedWithEinval)
{
    for (const char* text : {static_cast<const char*>(nullptr), "plain", "$AES-128-CBC:PKCS$abc$def", ""}) {
        errno = 0;
        EXPECT_FALSE(mail_aes_decrypt(text)) << (text ? text : "(null)");
        EXPECT_EQ(errno, EINVAL) << (text ? text : "(null)");
    }
    EXPECT_FALSE(is_encrypted_with_mail_aes("$AES-256-CBC:PKC$"));
}

TEST_F(CipherTest, ShortIvOrDamagedTextDoesNotDecrypt)
{
    const auto text = mail_aes_encrypt("pw");
    ASSERT_TRUE(text);
    const Stored parts = split(*text);
    errno = 0;
    EXPECT_FALSE(mail_aes_decrypt(("$AES-256-CBC:PKCS$" + b64_encode("short") + "$" + parts.data).c_str()));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(mail_aes_decrypt(("$AES-256-CBC:PKCS$" + parts.iv + "$not base64!").c_str()));
}

TEST(CipherKeys, WrongKeyDoesNotDecrypt)
{
    TempDir dir;
    writeFile(dir.file("a"), fixedKey(1));
    writeFile(dir.file("b"), fixedKey(2));
    ASSERT_TRUE(mail_aes_init(dir.file("a")));
    const auto text = quelt_cipher_crypt("password", "$AES-256-CBC:PKCS$" + b64_encode(std::string(16, '\1')));
    mail_aes_cleanup();
    ASSERT_TRUE(text);
    ASSERT_TRUE(mail_aes_init(dir.file("b")));
    EXPECT_FALSE(mail_aes_decrypt(text->c_str()));
    mail_aes_cleanup();
}

TEST(CipherKeys, ShortOrMissingKeyFileFailsWithMessages)
{
    TempDir dir;
    const std::string shortKey = dir.file("short");
    writeFile(shortKey, std::string(31, 'k'));
    const std::string missing = dir.file("missing");
    const std::pair<std::string, std::string> cases[] = {
        {shortKey, "Failed to read entire encryption key from '" + shortKey + "': Success (0)\n"},
        {missing, "Can't read encryption key from '" + missing + "': No such file or directory (2)\n"},
    };
    for (const auto& [path, first] : cases) {
        CaptureFd err(2);
        EXPECT_FALSE(mail_aes_init(path)) << path;
        err.restore();
        EXPECT_EQ(err.text(), first + "Failed to initialize encryption cipher 'AES-256-CBC:PKCS' with key '" + path +
                                  "'\n")
            << path;
    }
    EXPECT_FALSE(mail_aes_encrypt("pw")) << "no context may be left behind";
}

TEST(CipherContexts, ReferencesKeepTheContextUntilTheLastCleanup)
{
    TempDir dir;
    writeFile(dir.file("key"), fixedKey(9) + "bytes beyond the key are ignored");
    ASSERT_TRUE(mail_aes_init(dir.file("key")));
    // A second init neither reads the key again nor fails on a path that is not there.
    ASSERT_TRUE(mail_aes_init(dir.file("missing")));
    mail_aes_cleanup();
    const auto text = mail_aes_encrypt("still usable");
    ASSERT_TRUE(text);
    EXPECT_EQ(mail_aes_decrypt(text->c_str()), std::optional<std::string>("still usable"));
    mail_aes_cleanup();
    EXPECT_FALSE(mail_aes_encrypt("gone"));

    CaptureFd err(2);
    mail_aes_cleanup();
    err.restore();
    EXPECT_EQ(err.text(), "Failed to correctly destroy encryption cipher 'AES-256-CBC:PKCS'. A programming error?\n");
}

TEST(CipherContexts, UnknownOrOverlongCipherNameIsRefused)
{
    TempDir dir;
    writeFile(dir.file("key"), fixedKey(0));
    const std::string overlong(32, 'A');
    for (const std::string& name : {std::string("NO-SUCH-CIPHER:PKCS"), overlong}) {
        CaptureFd err(2);
        EXPECT_FALSE(quelt_cipher_init(name, dir.file("key"))) << name;
        err.restore();
        EXPECT_EQ(err.text(), "Unknown encryption cipher: '" + name + "'\nFailed to initialize encryption cipher '" +
                                  name + "' with key '" + dir.file("key") + "'\n")
            << name;
    }
}

TEST(CipherKeys, GeneratedKeysAreFreshAndNeedRoom)
{
    unsigned char a[32], b[40], small[31];
    errno = 0;
    EXPECT_EQ(mail_aes_gen_key(small, sizeof small), 0);
    EXPECT_EQ(errno, EINVAL);
    ASSERT_EQ(mail_aes_gen_key(a, sizeof a), 32);
    ASSERT_EQ(mail_aes_gen_key(b, sizeof b), 32);
    EXPECT_NE(std::string(reinterpret_cast<char*>(a), 32), std::string(reinterpret_cast<char*>(b), 32));
}

}  // namespace
