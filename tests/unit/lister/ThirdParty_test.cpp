#include "MadeUpProcess.h"

namespace lister {
namespace {

class ThirdPartyRule : public MadeUpMapper {};

TEST_F(ThirdPartyRule, ExecutableMappingOfTheTreeIsTheReason) {
    map("1000-2000 r-xp 00000000 fe:00 5 /usr/lib/x.so\n" + line());
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::MapsProduct);
    EXPECT_EQ(judgeAsThirdParty("77").category, CAT_THIRD_PARTY);
}

/// The entries "." and ".." count, too.
TEST_F(ThirdPartyRule, DescriptorsWithinTheBudgetAreSearchedToTheEnd) {
    for (const char* name : {"fd/0", "fd/1", "fd/2"}) {
        link("77", name, "/dev/null");
    }
    m_roots.budget.descriptors = 5;
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::NoRelation);
    m_roots.budget.descriptors = 4;
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::OverBudget);
}

/// In another mount namespace the name proves nothing: it must be the host's very file.
TEST_F(ThirdPartyRule, OtherMountNamespaceNeedsTheHostsVeryFile) {
    link("77", "ns/mnt", "mnt:[1]");
    map(line());
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::MapsProduct);
    const std::string other = line("r-xp", 1);
    map(other);
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::NoRelation);
    fs::remove(m_library);
    map(other);
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::NoRelation);
}

/// What maps tells of a file is not on every file system what its status tells: overlayfs, btrfs.
TEST_F(ThirdPartyRule, OtherMountNamespaceHasItsMappedFilesAsked) {
    link("77", "ns/mnt", "mnt:[1]");
    fs::create_directories(fs::path(m_proc) / "77/map_files");
    map("0000" + line("r-xp", 1)); // the link's name has no leading zeros
    link("77", "map_files/55c0-55d0", m_library);
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::MapsProduct);
    map(line());
    link("77", "map_files/55c0-55d0", copySleep(m_folder / "other"));
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::NoRelation);
}

TEST_F(ThirdPartyRule, FolderAndRootOfTheTreeAreListed) {
    for (const char* name : {"cwd", "root"}) {
        make("77", m_folder / "mapper");
        link("77", name, m_root);
        EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::HoldsProduct) << name;
        EXPECT_EQ(judgeAsThirdParty("77").category, CAT_OTHER_THIRD_PARTY);
    }
}

TEST_F(ThirdPartyRule, RemovedFolderOfAnotherTreeDoesNotCount) {
    link("77", "ns/mnt", "mnt:[1]");
    fs::create_directories(m_root + "/gone");
    link("77", "cwd", m_root + "/gone (deleted)"); // the link leads nowhere
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::NoRelation);
    link("77", "cwd", m_root + "/gone");
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::HoldsProduct);
}

TEST_F(ThirdPartyRule, WhatIsGoneHasVanished) {
    for (const char* name : {"maps", "fd"}) {
        make("77", m_folder / "mapper");
        fs::remove_all(fs::path(m_proc) / "77" / name);
        EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::Vanished) << name;
    }
    make("77", m_folder / "mapper");
    map(line());
    fs::remove(fs::path(m_proc) / "77/exe");
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::Vanished);
}

TEST_F(ThirdPartyRule, ProcessThatIsNeverEndedIsOnlyListed) {
    map(line());
    EXPECT_EQ(judgeAsThirdParty("77", 1).reason, Reason::DemotedPid1);
    EXPECT_EQ(judgeAsThirdParty("77", getppid()).reason, Reason::DemotedAncestor);
    link("77", "ns/pid", "pid:[1]");
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::DemotedScope);
    make("77", copySleep(m_folder / "sshd"));
    map(line());
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::DemotedHostService);
    for (const Verdict& verdict : {judgeAsThirdParty("77"), judgeAsThirdParty("77", 1)}) {
        EXPECT_EQ(verdict.category, CAT_OTHER_THIRD_PARTY);
    }
}

TEST_F(ThirdPartyRule, ExecutableThatIsNowhereIsUnexcludable) {
    map(line());
    link("77", "exe", m_folder / "gone");
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::DemotedUnexcludable);
}

/// An exclude list would find the other file. A relative link leads from where it stands, its text from where the
/// caller stands.
/// The link leads to the file itself, and its text, looked up, to the one that is called like a removed one.
TEST_F(ThirdPartyRule, ExecutableWhoseNameIsAnotherFilesIsUnexcludable) {
    map(line());
    const fs::path file = copySleep(m_folder / "file");
    const UniqueFd executable(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    link("77", "exe", "/proc/self/fd/" + std::to_string(executable.get()));
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::MapsProduct) << "the very file";
    fs::remove(file);
    copySleep(m_folder / "file (deleted)");
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::DemotedUnexcludable);
}

TEST_F(ThirdPartyRule, PathThatNoRecordHoldsIsUnexcludable) {
    fs::path folder = m_folder;
    while (folder.string().size() < sizeof CV_Process_s::path) {
        folder /= std::string(200, 'd');
    }
    fs::create_directories(folder);
    make("77", copySleep(folder / "mapper"));
    map(line());
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::DemotedUnexcludable);
}

TEST_F(ThirdPartyRule, LiveFileNamedLikeADeletedOneIsTheVeryFile) {
    map(line());
    copySleep(m_folder / "mapper (deleted)");
    const UniqueFd removed(open((m_folder / "mapper (deleted)").c_str(), O_RDONLY | O_CLOEXEC));
    link("77", "exe", (m_folder / "mapper (deleted)").string());
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::MapsProduct) << "a live file may be called so";
    link("77", "ns/mnt", "mnt:[1]");
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::MapsProduct);
}

TEST_F(ThirdPartyRule, CallersOwnExecutableIsLeftOut) {
    map(line());
    link("77", "exe", fs::read_symlink("/proc/self/exe"));
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::CallersExecutable);
}

} // namespace
} // namespace lister
