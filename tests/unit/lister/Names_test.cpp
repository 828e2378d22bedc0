#include "names.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace lister {
namespace {

using namespace std::string_literals;

TEST(Below, EndsAtAComponent) {
    EXPECT_TRUE(isBelow("/usr/quarn/x", "/usr/quarn"));
    EXPECT_FALSE(isBelow("/usr/quarn2/x", "/usr/quarn"));
    EXPECT_FALSE(isBelow("/usr/quarn", "/usr/quarn"));
    EXPECT_FALSE(isBelow("/usr/quarn/", "/usr/quarn"));
}

TEST(FitPath, MayBecomePartOfACommandLine) {
    EXPECT_TRUE(isFitPath("/usr/quarn/corvane/bin/halvd"));
    EXPECT_TRUE(isFitPath("/usr/quarn/a.b_c-d+e@f:g,h%i/J9"));
    EXPECT_TRUE(isFitPath("/usr/quarn/gr\xC3\xBC\xC3\x9F"
                          "e"));
    EXPECT_TRUE(isFitPath("/usr/quarn/\xC2\xA0"));
    EXPECT_TRUE(isFitPath("/" + std::string(1022, 'x')));
}

TEST(FitPath, ShellCharactersControlsAndLengthMakeItUnfit) {
    for (const char c : " ;$()`'\"\\|&<>*?[]{}!#~^=\n\t\r\x1b\x01\x7f"s) {
        EXPECT_FALSE(isFitPath("/usr/quarn/a"s + c + "b")) << "character " << static_cast<int>(c);
    }
    EXPECT_FALSE(isFitPath("/usr/quarn/\xC2\x9B"s)) << "C1";
    EXPECT_FALSE(isFitPath("/usr/quarn/\xC2\x80"s)) << "C1";
    EXPECT_FALSE(isFitPath("/usr/quarn/\xFF"s)) << "no UTF-8";
    EXPECT_FALSE(isFitPath("/usr/quarn/\xC3"s)) << "cut UTF-8";
    EXPECT_FALSE(isFitPath("/usr/quarn/\xC0\xAF"s)) << "overlong";
    EXPECT_FALSE(isFitPath("/" + std::string(1023, 'x')));
}

TEST(Controls, AreShownAsQuestionMarks) {
    EXPECT_EQ(withoutControls("a\nb\x1b[2J\x7f"), "a?b?[2J?");
    EXPECT_EQ(withoutControls("\xC2\x9B"
                              "1m"),
              "?1m");
    EXPECT_EQ(withoutControls("\xFF\xFEx"), "??x");
    EXPECT_EQ(withoutControls("gr\xC3\xBCn"), "gr\xC3\xBCn");
    EXPECT_TRUE(hasControls("a\tb"));
    EXPECT_FALSE(hasControls("a b;$(c)"));
}

TEST(Names, ServedFileSystems) {
    for (const char* type : {"nfs", "nfs4", "cifs", "smb3", "9p", "fuse", "fuse.sshfs", "fuseblk", "autofs", "ceph"}) {
        EXPECT_TRUE(isServedType(type)) << type;
    }
    for (const char* type : {"", "ext4", "xfs", "btrfs", "tmpfs", "overlay", "proc", "zfs"}) {
        EXPECT_FALSE(isServedType(type)) << type;
    }
}

TEST(Names, ServicesOfTheHost) {
    std::istringstream services(
        "agetty conmon containerd containerd-shim containerd-shim-runc-v2 cron crond crun dbus- "
        "dbus-broker dbus-broker-launch dbus-daemon dinit dockerd getty init login "
        "NetworkManager openrc-init podman polkitd rsyslogd runc runit s6-svscan sshd sshd-auth "
        "sshd-session syslog-ng systemd systemd-journald udevd upstart");
    for (std::string name; services >> name;) {
        EXPECT_TRUE(isHostServiceName(name)) << name;
    }
    for (const char* name : {"", "sshd2", "initd", "postgres", "halvd"}) {
        EXPECT_FALSE(isHostServiceName(name)) << name;
    }
}

} // namespace
} // namespace lister
