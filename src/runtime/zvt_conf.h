// The panel's configuration file /etc/zvt/zvt.conf: "NAME value" lines, read once per process,
// with compiled-in defaults for the known variables.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct conf_entry {
    std::string key;
    std::string value;
};

struct conf_data {
    std::vector<conf_entry> data;
    bool finalized = true;  // data is sorted by key
};

// Stores the pair; a key set again keeps its place and takes the new value.
int conf_set_r(const std::string& key, const std::string& value, conf_data& conf);
void conf_finalize_r(conf_data& conf);
std::optional<std::string> conf_get_r(const std::string& key, const conf_data& conf);
// Parses the file line by line, reporting bad lines through quelt_log; 0, or -1 with errno.
int conf_read_file_r(const char* path, conf_data& conf);

// Indexes of the known variables; 0 and kZvtConfMaxIndex are sentinels.
enum ZvtConfIndex {
    QUELT_MAILNAMES_D_IDX = 1,
    COURIER_IMAP_ROOT_D_IDX = 2,
    PRODUCT_ROOT_D_IDX = 28,
    HTTPD_SERVICE_IDX = 23,
};
constexpr int kZvtConfMaxIndex = 31;

extern const char* const theZvtConfNames[kZvtConfMaxIndex + 2];
extern const char* const theZvtConfDefauls[kZvtConfMaxIndex + 2];

// The loaded file; -1 when it cannot be read (the next lookup tries again).
int autoprepend();
std::optional<std::string> zvtConfGet(const std::string& name);
std::optional<std::string> zvtConfGetByIndex(int index);
// The value from the file, else the compiled-in default of that index.
std::string zvtConfGetDefaultByIndex(int index);
// As above by name; an unknown name is reported and gives nothing.
std::optional<std::string> zvtConfGetDefault(const std::string& name);

// Takes the mailbox password from ZVT_PASSWORD (crypted = 0) or ZVT_CRYPTED_PASSWORD
// (crypted = 1) and removes that variable; -1 when neither is set.
int get_env_password(std::string& password, int& crypted);
