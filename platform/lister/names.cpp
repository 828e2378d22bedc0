#include "names.h"

#include <algorithm>
#include <array>

#include "controls.h"
#include "utf8.h"

namespace lister {

namespace {

constexpr std::size_t kLongestFitPath = 1023;

bool isPlainPathCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("/._-+@:,%").find(c) != std::string_view::npos;
}

constexpr std::array<std::string_view, 24> kHostServices = {
    "init",      "upstart", "runit",      "s6-svscan", "dinit",  "openrc-init", "sshd",  "sshd-session",
    "sshd-auth", "login",   "agetty",     "getty",     "udevd",  "cron",        "crond", "rsyslogd",
    "syslog-ng", "polkitd", "containerd", "dockerd",   "podman", "conmon",      "runc",  "crun"};

/// By their beginnings: "dbus-daemon" and "dbus-broker", "containerd-shim-runc-v2".
constexpr std::array<std::string_view, 4> kHostServiceFamilies = {"systemd", "dbus-", "containerd-shim",
                                                                  "NetworkManager"};

/// By their beginnings: "nfs4", "fuse.sshfs" and "fuseblk" are among them.
constexpr std::array<std::string_view, 12> kServedTypes = {"fuse", "nfs",  "cifs",   "smb",     "9p",     "afs",
                                                           "ceph", "coda", "lustre", "gluster", "autofs", "virtiofs"};

} // namespace

bool isServedType(std::string_view type) {
    return std::any_of(kServedTypes.begin(), kServedTypes.end(),
                       [type](std::string_view served) { return type.starts_with(served); });
}

bool isBelow(std::string_view path, std::string_view root) {
    return path.size() > root.size() + 1 && path.starts_with(root) && path[root.size()] == '/';
}

std::string_view lastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

bool isFitPath(std::string_view path) {
    if (path.size() > kLongestFitPath) {
        return false;
    }
    while (!path.empty()) {
        const std::size_t length = utf8::sequenceLength(path);
        if (length == 0 || (length == 1 && !isPlainPathCharacter(path[0])) || controls::isC1(path.substr(0, length))) {
            return false;
        }
        path.remove_prefix(length);
    }
    return true;
}

bool hasControls(std::string_view text) {
    return withoutControls(text) != text;
}

std::string withoutControls(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t length = utf8::sequenceLength(text);
        const std::string_view sequence = text.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0 || controls::isControl(sequence)) {
            shown += '?';
        } else {
            shown += sequence;
        }
        text.remove_prefix(sequence.size());
    }
    return shown;
}

bool isHostServiceName(std::string_view name) {
    return std::find(kHostServices.begin(), kHostServices.end(), name) != kHostServices.end() ||
           std::any_of(kHostServiceFamilies.begin(), kHostServiceFamilies.end(),
                       [name](std::string_view family) { return name.starts_with(family); });
}

} // namespace lister
