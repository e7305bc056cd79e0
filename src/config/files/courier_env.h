// The Courier-IMAP daemons' environment files: <COURIER_IMAP_ROOT_D>/etc/courier-imap/{imapd,
// imapd-ssl,pop3d,pop3d-ssl}, "NAME=value" lines.
#pragma once

#include <optional>
#include <string>
#include <vector>

// One requested change of the environment files: set `var` to `value` (nothing: the empty
// value) or remove it.
struct EnvChange {
    enum Action { Set = 0, Remove = 1 };
    std::string var;
    Action action;
    std::optional<std::string> value;
};

// At most this many changes are applied; the tail of a longer list is ignored (and said so).
constexpr std::size_t kMaxEnvChanges = 31;

// Rewrites each of the four files that exists, through a temporary file renamed over it (so
// each file is either old or new, keeping its owner and mode): a set change replaces the
// variable's first line and drops its later ones, or is appended when the variable is missing;
// a remove change drops all its lines; every other line stays. 0, or -1 after printing why.
int edit_courier_env_files(const std::vector<EnvChange>& changes);

// Applies the changes to the files, then restarts Courier-IMAP so its daemons read them: the
// restart's result, or -1 when a file could not be changed (nothing is restarted then).
int set_courier_params_list(const std::vector<EnvChange>& changes);

// RELAYCLIENT (empty when relaying), POPAUTH and SHORTNAMES ("1" when on) are set or removed;
// POPLOCK_TIME is set to a positive time, removed for 0, left alone when negative.
int set_courier_params(int relayClient, int popAuth, short popLockTime, int shortNames);

// SHORTNAMES set to "1" or removed.
int set_courier_shortnames_params(int shortNames);
