// Reversible password encryption: a process-wide cache of named symmetric cipher contexts
// (OpenSSL EVP) and the stored form "$<cipher name>$<Base64 IV>$<Base64 ciphertext>".
#pragma once

#include <cstddef>
#include <optional>
#include <string>

// The name under which mail passwords are encrypted, and the prefix of every stored password.
inline constexpr const char* kMailAesCipher = "AES-256-CBC:PKCS";
inline constexpr const char* kMailAesPrefix = "$AES-256-CBC:PKCS$";

// Creates the context `name` ("<OpenSSL cipher name>[:options]"; options holding "PKCS" select
// PKCS#7 padding, otherwise zero padding) with the key read from `keyPath`, or adds a
// reference to an existing one without reading the key again. Failures are logged; false.
bool quelt_cipher_init(const std::string& name, const std::string& keyPath);
// Drops one reference; the last one destroys the context and wipes its key.
void quelt_cipher_cleanup(const std::string& name);
// Encrypts with a fresh random IV: "$name$iv$ciphertext", or nothing on failure.
std::optional<std::string> quelt_cipher_encrypt(const std::string& name, const std::string& plain);
// `spec` is "$name", or "$name$<Base64 IV>" to encrypt under that IV instead of a random one.
std::optional<std::string> quelt_cipher_crypt(const std::string& plain, const std::string& spec);

// The mail password cipher (AES-256-CBC, PKCS#7) over the contexts above.
bool mail_aes_init(const std::string& keyPath);
void mail_aes_cleanup();
std::optional<std::string> mail_aes_encrypt(const std::string& plain);
// The plain text of a stored password; nothing (errno EINVAL for a null or foreign text)
// when it cannot be decrypted.
std::optional<std::string> mail_aes_decrypt(const char* encrypted);
bool is_encrypted_with_mail_aes(const char* text);
// Fills `buffer` with 32 random key bytes and returns 32; 0 when `size` is below 32 (errno
// EINVAL) or the generator fails.
int mail_aes_gen_key(unsigned char* buffer, std::size_t size);
