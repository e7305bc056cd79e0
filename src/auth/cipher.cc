// Named cipher contexts over OpenSSL EVP and the stored password form built with them.
#include "auth/cipher.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>

#include "auth/base64.h"
#include "runtime/fd_owner.h"
#include "runtime/log.h"

namespace {

constexpr std::size_t kMaxNameLength = 31;
constexpr std::size_t kKeyReadSize = 48;
constexpr std::size_t kMaxKeyLength = 32;
constexpr std::size_t kMaxIvLength = 16;
constexpr std::size_t kMaxDataLength = 2147483646;

constexpr unsigned kRandomIv = 1;
constexpr unsigned kZeroPadding = 4;

struct EvpCtxFree {
    void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
using EvpCtx = std::unique_ptr<EVP_CIPHER_CTX, EvpCtxFree>;

// One cache entry. Its OpenSSL contexts are set up with the key on first use and afterwards
// only given a new IV, so a run of passwords does not rebuild the cipher.
struct CipherContext {
    std::string name;
    const EVP_CIPHER* cipher = nullptr;
    std::array<unsigned char, kMaxKeyLength> key{};
    std::array<unsigned char, kMaxIvLength> iv{};
    EvpCtx encryptCtx;
    EvpCtx decryptCtx;
    std::string plain;
    std::string encrypted;
    unsigned mode = 0;
    int references = 0;

    ~CipherContext()
    {
        OPENSSL_cleanse(key.data(), key.size());
        OPENSSL_cleanse(iv.data(), iv.size());
        if (!plain.empty())
            OPENSSL_cleanse(&plain[0], plain.size());
        if (!encrypted.empty())
            OPENSSL_cleanse(&encrypted[0], encrypted.size());
    }

    std::size_t ivLength() const { return static_cast<std::size_t>(EVP_CIPHER_iv_length(cipher)); }
    std::size_t blockSize() const { return static_cast<std::size_t>(EVP_CIPHER_block_size(cipher)); }
};

// Most recently created first.
std::list<std::unique_ptr<CipherContext>>& contexts()
{
    static std::list<std::unique_ptr<CipherContext>> list;
    return list;
}

void destroyAllContexts()
{
    contexts().clear();
}

CipherContext* findContext(const std::string& name)
{
    for (auto& entry : contexts())
        if (entry->name == name)
            return entry.get();
    return nullptr;
}

// Stores `data` as the context's plain or encrypted text, refusing what EVP cannot take.
bool storeData(std::string& buffer, const std::string& data, const char* what)
{
    if (data.size() > kMaxDataLength) {
        quelt_log(LOG_WARNING,
                  "Attempt to feed into symmetric cipher more %s data (%zu bytes) than it's designed to handle.",
                  what, data.size());
        errno = EINVAL;
        return false;
    }
    buffer = data;
    return true;
}

// Reads exactly `length` key bytes from `keyPath` into `out`; logs and returns false otherwise.
bool readKey(const std::string& keyPath, unsigned char* out, std::size_t length)
{
    quelt::StdioFile file(std::fopen(keyPath.c_str(), "rbe"));
    if (!file) {
        const int err = errno;
        quelt_log(LOG_ERR, "Can't read encryption key from '%s': %s (%d)", keyPath.c_str(), std::strerror(err),
                  err);
        return false;
    }
    errno = 0;
    if (std::fread(out, 1, length, file.get()) != length) {
        const int err = errno;
        quelt_log(LOG_ERR, "Failed to read entire encryption key from '%s': %s (%d)", keyPath.c_str(),
                  std::strerror(err), err);
        return false;
    }
    return true;
}

bool createContext(const std::string& name, const std::string& keyPath)
{
    if (name.size() > kMaxNameLength) {
        quelt_log(LOG_ERR, "Unknown encryption cipher: '%s'", name.c_str());
        return false;
    }
    static bool initialised = false;
    if (!initialised) {
        OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS, nullptr);
        std::atexit(destroyAllContexts);
        initialised = true;
    }
    const std::string::size_type colon = name.find(':');
    const std::string cipherName = name.substr(0, colon);
    const std::string options = colon == std::string::npos ? std::string() : name.substr(colon + 1);
    const EVP_CIPHER* cipher = EVP_get_cipherbyname(cipherName.c_str());
    if (!cipher) {
        quelt_log(LOG_ERR, "Unknown encryption cipher: '%s'", name.c_str());
        return false;
    }
    const std::size_t keyLength = static_cast<std::size_t>(EVP_CIPHER_key_length(cipher));
    if (keyLength > kKeyReadSize) {
        quelt_log(LOG_CRIT, "Not enough space supplied to read encryption key data from '%s'", keyPath.c_str());
        return false;
    }
    std::array<unsigned char, kKeyReadSize> keyData{};
    const bool haveKey = readKey(keyPath, keyData.data(), keyLength);
    bool created = false;
    if (haveKey) {
        auto entry = std::make_unique<CipherContext>();
        entry->name = name;
        entry->cipher = cipher;
        entry->mode = options.find("PKCS") != std::string::npos ? kRandomIv : kRandomIv | kZeroPadding;
        if (keyLength > entry->key.size() || entry->ivLength() > entry->iv.size()) {
            // The half-built entry never joined the list; dropping it wipes what it holds.
            quelt_log(LOG_ERR, "Failed to create encryption cipher '%s'. Invalid key or IV length?", name.c_str());
        } else {
            std::memcpy(entry->key.data(), keyData.data(), keyLength);
            entry->references = 1;
            contexts().push_front(std::move(entry));
            created = true;
        }
    }
    OPENSSL_cleanse(keyData.data(), keyData.size());
    return created;
}

// Sets the context up on first use (cipher, key, IV, padding) and only re-IVs it later.
bool prepare(EvpCtx& ctx, CipherContext& entry, const unsigned char* iv, int encrypt)
{
    if (!ctx) {
        ctx.reset(EVP_CIPHER_CTX_new());
        if (!ctx)
            return false;
        if (EVP_CipherInit_ex(ctx.get(), entry.cipher, nullptr, entry.key.data(), iv, encrypt) != 1) {
            ctx.reset();
            return false;
        }
        if (entry.mode & kZeroPadding)
            EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
        return true;
    }
    return EVP_CipherInit_ex(ctx.get(), nullptr, nullptr, nullptr, iv, encrypt) == 1;
}

// Runs the prepared context over `in`; nothing when OpenSSL refuses (a wrong key or padding).
std::optional<std::string> runCipher(EVP_CIPHER_CTX* ctx, const std::string& in, std::size_t blockSize)
{
    std::string out(in.size() + blockSize, '\0');
    int written = 0;
    int finalWritten = 0;
    auto* buffer = reinterpret_cast<unsigned char*>(&out[0]);
    if (EVP_CipherUpdate(ctx, buffer, &written, reinterpret_cast<const unsigned char*>(in.data()),
                         static_cast<int>(in.size())) != 1)
        return std::nullopt;
    if (EVP_CipherFinal_ex(ctx, buffer + written, &finalWritten) != 1)
        return std::nullopt;
    out.resize(static_cast<std::size_t>(written + finalWritten));
    return out;
}

// Sets the context's IV from its Base64 text; false (errno EINVAL) when the text is not Base64
// or holds fewer bytes than the cipher's IV.
bool takeIv(CipherContext& entry, const std::string& ivText)
{
    const std::size_t ivLength = entry.ivLength();
    const auto iv = b64_decode(ivText);
    if (!iv || iv->size() < ivLength) {
        errno = EINVAL;
        return false;
    }
    std::memcpy(entry.iv.data(), iv->data(), ivLength);
    return true;
}

std::optional<std::string> encryptWith(CipherContext& entry, const std::string& plain, const std::string& ivText)
{
    if (!storeData(entry.plain, plain, "plain"))
        return std::nullopt;
    const std::size_t ivLength = entry.ivLength();
    if (!ivText.empty() && (entry.mode & kRandomIv)) {
        if (!takeIv(entry, ivText))
            return std::nullopt;
    } else if (ivLength > 0 && RAND_bytes(entry.iv.data(), static_cast<int>(ivLength)) != 1) {
        return std::nullopt;
    }
    if (!prepare(entry.encryptCtx, entry, entry.iv.data(), 1))
        return std::nullopt;
    std::string input = entry.plain;
    if (entry.mode & kZeroPadding) {
        const std::size_t block = entry.blockSize();
        const std::size_t rest = input.size() % block;
        if (input.empty() || rest != 0)
            input.append(input.empty() ? block : block - rest, '\0');
    }
    const auto cipherText = runCipher(entry.encryptCtx.get(), input, entry.blockSize());
    OPENSSL_cleanse(&input[0], input.size());
    if (!cipherText)
        return std::nullopt;
    entry.encrypted = *cipherText;
    if (entry.mode & kRandomIv)
        return "$" + entry.name + "$" + b64_encode(entry.iv.data(), ivLength) + "$" + b64_encode(entry.encrypted);
    return "$" + entry.name + "$" + b64_encode(entry.encrypted);
}

// Splits "$name$iv$ciphertext": the name ends at the second "$", the ciphertext follows the last.
bool splitStored(const std::string& text, std::string& name, std::string& iv, std::string& data)
{
    if (text.empty() || text[0] != '$')
        return false;
    const auto second = text.find('$', 1);
    if (second == std::string::npos)
        return false;
    const auto last = text.rfind('$');
    name = text.substr(1, second - 1);
    iv = last > second ? text.substr(second + 1, last - second - 1) : std::string();
    data = text.substr(last + 1);
    return true;
}

std::optional<std::string> decryptStored(const std::string& text)
{
    std::string name, ivText, dataText;
    if (!splitStored(text, name, ivText, dataText))
        return std::nullopt;
    CipherContext* entry = findContext(name);
    if (!entry)
        return std::nullopt;
    if ((entry->mode & kRandomIv) && !ivText.empty() && !takeIv(*entry, ivText))
        return std::nullopt;
    const auto data = b64_decode(dataText);
    if (!data || !storeData(entry->encrypted, *data, "encrypted"))
        return std::nullopt;
    if (!prepare(entry->decryptCtx, *entry, entry->iv.data(), 0))
        return std::nullopt;
    const auto plain = runCipher(entry->decryptCtx.get(), entry->encrypted, entry->blockSize());
    if (!plain)
        return std::nullopt;
    entry->plain = *plain;
    // The plain text is a C string: zero padding (and anything after a zero byte) ends it.
    return entry->plain.substr(0, entry->plain.find('\0'));
}

}  // namespace

bool quelt_cipher_init(const std::string& name, const std::string& keyPath)
{
    if (CipherContext* entry = findContext(name)) {
        ++entry->references;
        return true;
    }
    if (createContext(name, keyPath))
        return true;
    quelt_log(LOG_ERR, "Failed to initialize encryption cipher '%s' with key '%s'", name.c_str(), keyPath.c_str());
    return false;
}

void quelt_cipher_cleanup(const std::string& name)
{
    auto& list = contexts();
    for (auto it = list.begin(); it != list.end(); ++it) {
        if ((*it)->name != name)
            continue;
        if ((*it)->references > 1)
            --(*it)->references;
        else
            list.erase(it);
        return;
    }
    quelt_log(LOG_INFO, "Failed to correctly destroy encryption cipher '%s'. A programming error?", name.c_str());
}

std::optional<std::string> quelt_cipher_crypt(const std::string& plain, const std::string& spec)
{
    if (spec.empty() || spec[0] != '$')
        return std::nullopt;
    const auto dollar = spec.find('$', 1);
    const std::string name = spec.substr(1, dollar == std::string::npos ? std::string::npos : dollar - 1);
    const std::string iv = dollar == std::string::npos ? std::string() : spec.substr(dollar + 1);
    if (name.size() > kMaxNameLength)
        return std::nullopt;
    CipherContext* entry = findContext(name);
    if (!entry)
        return std::nullopt;
    return encryptWith(*entry, plain, iv);
}

std::optional<std::string> quelt_cipher_encrypt(const std::string& name, const std::string& plain)
{
    return quelt_cipher_crypt(plain, "$" + name);
}

bool mail_aes_init(const std::string& keyPath)
{
    return quelt_cipher_init(kMailAesCipher, keyPath);
}

void mail_aes_cleanup()
{
    quelt_cipher_cleanup(kMailAesCipher);
}

std::optional<std::string> mail_aes_encrypt(const std::string& plain)
{
    return quelt_cipher_encrypt(kMailAesCipher, plain);
}

bool is_encrypted_with_mail_aes(const char* text)
{
    return text && std::strncmp(text, kMailAesPrefix, std::strlen(kMailAesPrefix)) == 0;
}

std::optional<std::string> mail_aes_decrypt(const char* encrypted)
{
    if (!is_encrypted_with_mail_aes(encrypted)) {
        errno = EINVAL;
        return std::nullopt;
    }
    return decryptStored(encrypted);
}

int mail_aes_gen_key(unsigned char* buffer, std::size_t size)
{
    constexpr int kKeyLength = 32;
    if (size < static_cast<std::size_t>(kKeyLength)) {
        errno = EINVAL;
        return 0;
    }
    return RAND_bytes(buffer, kKeyLength) == 1 ? kKeyLength : 0;
}
