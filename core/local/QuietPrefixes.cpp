#include "core/local/QuietPrefixes.h"

namespace brimvale::QuietPrefixes {

std::vector<std::string> defaults() {
    return {
        "System/Volumes/Update",
        "System/Volumes/VM",
        "private/var/db",
        "private/var/root",
        // Only root may list these on Debian and its relatives.
        "root",
        "lost+found",
        "etc/ssl/private",
        "etc/polkit-1/rules.d",
        "usr/share/polkit-1/rules.d",
        "var/cache/apt/archives/partial",
        "var/cache/ldconfig",
        "var/cache/private",
        "var/lib/apt/lists/partial",
        "var/lib/polkit-1",
        "var/lib/private",
        "var/lib/sudo",
        "var/log/private",
        "var/spool/cron/crontabs",
        "var/spool/rsyslog",
        // Services' own data, kept from every other user.
        "var/lib/containerd",
        "var/lib/docker",
        "var/lib/mysql",
        "var/lib/postgresql",
        // Per-service private temporary folders and per-user runtime folders.
        "tmp/systemd-private-*",
        "var/tmp/systemd-private-*",
        "run/sudo",
        "run/user",
    };
}

bool contains(const std::vector<std::string>& prefixes, std::string_view logicalPath) {
    for (const std::string& prefix : prefixes) {
        if (!prefix.empty() && prefix.back() == '*') {
            if (logicalPath.starts_with(std::string_view(prefix).substr(0, prefix.size() - 1))) {
                return true;
            }
            continue;
        }
        if (logicalPath.starts_with(prefix) &&
            (logicalPath.size() == prefix.size() || logicalPath[prefix.size()] == '/')) {
            return true;
        }
    }
    return false;
}

} // namespace brimvale::QuietPrefixes
