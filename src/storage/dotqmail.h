// The .qmail delivery file of a mailname home: mailbox delivery and forwarding lines.
// Functions return 0 or -1 after printing why through messlog2; after every change the file
// belongs to popuser with mode 0600.
#pragma once

#include <cstddef>
#include <string>

constexpr const char* kDotQMailDeliveryLine = "| /usr/bin/deliverquota ./Maildir";
constexpr const char* kDotQMailLegacyLine = "./Maildir/";
constexpr const char* kDotQMailResetLine = "| true";
constexpr size_t kDotQMailPathMax = 4096;

// Rewrites the file as the single line "| true".
int dotqmail_reset(const std::string& path);
// Drops the legacy line and puts the delivery line last (once).
int dotqmail_add_delivery(const std::string& path);
// Drops the legacy and the delivery line; forwarding lines stay.
int dotqmail_remove_delivery(const std::string& path);
// Puts "&<address in ASCII form>" last (once).
int dotqmail_add_forward(const std::string& path, const std::string& address);
// Drops "&<address in ASCII form>"; either form of the address may be given.
int dotqmail_remove_forward(const std::string& path, const std::string& address);

// "<mail root>/<ASCII domain>/<mailname>/.qmail", refused when it would not fit `size` bytes
// (with its terminating NUL) or the mailname is not valid.
int get_dotqmail_path(std::string& path, size_t size, const std::string& mailname,
                      const std::string& domain);
// The same without "/.qmail".
int get_mailhome_path(std::string& path, size_t size, const std::string& mailname,
                      const std::string& domain);

namespace quelt::mail {

// Editor of one .qmail file; each operation throws quelt::SystemError "unable to modify <path>"
// with the current errno when the file function fails.
class DotQMailManager {
public:
    // Where a forwarding line is asked to go; every line is appended at the end regardless.
    enum class Position { Beginning = 1, End = 2 };

    explicit DotQMailManager(const std::string& path) : path_(path) {}

    void reset();
    void enableDelivery();
    void disableDelivery();
    void addRedirect(const std::string& address, Position position);
    void removeRedirect(const std::string& address);

    const std::string& path() const { return path_; }

private:
    [[noreturn]] void fail() const;

    std::string path_;
};

}  // namespace quelt::mail
