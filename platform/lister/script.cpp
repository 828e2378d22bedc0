#include "rules.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>

#include "cvcategories.h"
#include "errors.h"
#include "interpreters.h"
#include "lookup.h"
#include "names.h"
#include "procparse.h"
#include "shebang.h"

namespace lister {

namespace {

constexpr std::size_t kCommandLineSize = 64U << 10U;
/// Some 10 ms. In 4,000 starts of a shell (2 cores, Linux 6.18) its arguments came up to 1.2 ms after its executable,
/// half of the late ones within 24 us.
constexpr int kCommandLineReads = 1000;
/// The kernel keeps 15 bytes of a process's name (TASK_COMM_LEN).
constexpr std::size_t kCommSize = 15;

/// One in another; deeper ones are not looked for.
constexpr int kMostSubshells = 8;

constexpr std::array kProgramFolders = {"/bin/", "/usr/bin/", "/usr/local/bin/"};

/// An interpreter that nobody but root could have put there.
bool isTrustedInterpreter(const Caller& caller, const std::string& path, const FileStatus& status) {
    return isInterpreterName(lastComponent(path)) && !isBelow(path, caller.installRoot()) && status.owner == 0 &&
           (status.mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// What cannot be looked up is not taken for nothing.
UniqueFd find(const Caller& caller, const std::string& path) {
    UniqueFd file = findWithoutWaiting(caller, path);
    if (!file && errno == EREMOTE) {
        throw ProcessLost{Reason::AsksServer};
    }
    if (!file) {
        throwIfRefused(errno);
    }
    return file;
}

bool leadsTo(const Caller& caller, const std::string& path, const std::string& interpreter) {
    if (path == interpreter) {
        return true;
    }
    const UniqueFd file = find(caller, path);
    return file && required(pathOf(file)) == interpreter;
}

/// "#!/usr/bin/env python3" names the interpreter by its name alone: python3.11 answers to it, and whatever the host's
/// own folders have under it.
bool isCalled(const Caller& caller, const std::string& interpreter, std::string_view name) {
    return !name.empty() && (lastComponent(interpreter).starts_with(name) ||
                             std::any_of(kProgramFolders.begin(), kProgramFolders.end(), [&](const char* folder) {
                                 return leadsTo(caller, std::string(folder).append(name), interpreter);
                             }));
}

bool namesInterpreter(const Caller& caller, std::string_view firstBytes, const std::string& interpreter) {
    const std::optional<Shebang> shebang = parseShebang(firstBytes);
    const std::optional<std::string_view> program = shebang ? shebangProgram(*shebang) : std::nullopt;
    if (!program) {
        return false;
    }
    return program->find('/') == std::string_view::npos ? isCalled(caller, interpreter, *program)
                                                        : leadsTo(caller, std::string(*program), interpreter);
}

/// The kernel names a process that it started from a "#!" file after that file.
bool isNamedAfter(const PinnedProcess& process, std::string_view script) {
    const std::string text = required(process.read("stat", kSmallFileSize));
    const std::optional<StatLine> stat = parseStat(text);
    return stat && stat->comm == lastComponent(script).substr(0, kCommSize);
}

/// Opened only now that it is known to be a regular file: opening a pipe lets its writer go on, and a device may do
/// anything.
std::string firstBytesOf(const UniqueFd& script) {
    const UniqueFd file(open(nameOf(script).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        throwLost(errno);
    }
    char bytes[kShebangSize];
    const ssize_t count = ::read(file.get(), bytes, sizeof bytes);
    if (count < 0) {
        throwIfShort(errno);
        throw ProcessLost{Reason::Unreadable};
    }
    return {bytes, static_cast<std::size_t>(count)};
}

/// Whether the kernel has laid the arguments: it shows a program that is being executed before it does
/// (load_elf_binary, fs/binfmt_elf.c), and the arguments read as empty for a moment.
bool hasArguments(const PinnedProcess& process) {
    const std::optional<std::uint64_t> end = parseArgumentsEnd(required(process.read("stat", kSmallFileSize)));
    return end && *end != 0;
}

/// A process that erased its arguments is not waited for: any user can start thousands of these.
std::string readCommandLine(const PinnedProcess& process) {
    for (int count = 0; count < kCommandLineReads; ++count) {
        std::string text = required(process.read("cmdline", kCommandLineSize));
        if (!text.empty()) {
            return text;
        }
        if (hasArguments(process)) {
            return required(process.read("cmdline", kCommandLineSize));
        }
        sched_yield();
    }
    throw ProcessLost{Reason::Unreadable};
}

/// A relative script is one of the folder that the process works in, as far as that is still where it was started.
std::string pathOfScript(const PinnedProcess& process, std::string_view argument) {
    if (argument.starts_with("/")) {
        return std::string(argument);
    }
    return required(process.link("cwd")).append("/").append(argument);
}

/// A file below the install root that is the script argument of a process.
struct Script {
    UniqueFd file;
    FileStatus status;
    std::string path;
    std::string commandLine;
    bool isRelative = false;
};

/// What the process's script argument really leads to.
std::optional<Script> findScript(const Caller& caller, const PinnedProcess& process, const std::string& interpreter) {
    std::string commandLine = readCommandLine(process);
    const std::optional<std::string_view> argument = scriptArgument(lastComponent(interpreter), commandLine);
    if (!argument) {
        return std::nullopt;
    }
    const bool isRelative = !argument->starts_with("/");
    std::string path = pathOfScript(process, *argument);
    if (!isBelow(path, caller.installRoot()) && isOwnPath(path)) {
        return std::nullopt;
    }
    UniqueFd file = find(caller, path);
    path = file ? required(pathOf(file)) : "";
    if (!isBelow(path, caller.installRoot())) {
        return std::nullopt;
    }
    const FileStatus status = required(statusOf(file));
    if (status.links == 0) {
        // Removed just now, and it still had this path.
        path = pathOfLink(path);
    }
    return Script{std::move(file), status, std::move(path), std::move(commandLine), isRelative};
}

/// argv and comm are the process's own to forge: nobody but root or the script's owner makes a process of the product.
bool mayRun(const PinnedProcess& process, const FileStatus& script) {
    const std::optional<uid_t> user = parseEffectiveUid(required(process.read("status", kSmallFileSize)));
    return user && (*user == 0 || *user == script.owner);
}

bool isScriptOf(const Caller& caller, const PinnedProcess& process, const Script& script,
                const std::string& interpreter) {
    return S_ISREG(script.status.mode) &&
           (isNamedAfter(process, script.path) || namesInterpreter(caller, firstBytesOf(script.file), interpreter)) &&
           mayRun(process, script.status);
}

/// Whether the process has the script open, by the name that the kernel gives it: an upgrade may have replaced it.
bool holds(const PinnedProcess& process, const std::string& script) {
    const UniqueFd folder = process.open("fd", O_RDONLY | O_DIRECTORY);
    if (!folder) {
        throwLost(errno);
    }
    bool isHeld = false;
    const int error = forEachName(folder.get(), [&](const char* name) {
        LinkBuffer buffer;
        const std::optional<std::string_view> link =
            name[0] == '.' ? std::string_view() : readLink(folder.get(), name, buffer);
        if (!link) {
            throwIfRefused(errno); // or it was closed meanwhile
        }
        isHeld = link && pathOfLink(*link) == script;
        return !isHeld;
    });
    if (error != 0) {
        throwLost(error);
    }
    return isHeld;
}

/// The parent of a subshell runs the same script, by the same command line. Most shells close it in a subshell.
std::optional<PinnedProcess> shellOf(const Caller& caller, const PinnedProcess& process, const Script& script) {
    const std::string text = required(process.read("stat", kSmallFileSize));
    const std::optional<StatLine> stat = parseStat(text);
    if (!stat) {
        return std::nullopt;
    }
    PinnedProcess parent = caller.pin(stat->parent);
    const bool isShell = parent && parent.read("cmdline", kCommandLineSize) == script.commandLine;
    return isShell ? std::optional(std::move(parent)) : std::nullopt;
}

/// A relative argument is one of the folder where the process was started, and it may have gone to another one since,
/// with a script of the same name. Shells prove which one they run.
bool isProven(const Caller& caller, const PinnedProcess& process, const Script& script,
              const std::string& interpreter) {
    if (!script.isRelative || !keepsScriptOpen(lastComponent(interpreter), script.commandLine) ||
        holds(process, script.path)) {
        return true;
    }
    std::optional<PinnedProcess> shell = shellOf(caller, process, script);
    for (int count = 0; shell && count < kMostSubshells; ++count) {
        if (holds(*shell, script.path)) {
            return true;
        }
        shell = shellOf(caller, *std::exchange(shell, std::nullopt), script);
    }
    return false;
}

} // namespace

Verdict judgeScript(const Caller& caller, const PinnedProcess& process, std::string_view link) {
    // A product script that calls the program is not stopped by it.
    if (caller.isAncestor(process.pid())) {
        return {0, Reason::NoRelation, ""};
    }
    // An upgrade in place must not hide the scripts that the old interpreter still runs.
    const std::string interpreter(pathOfLink(link));
    // First what tells most interpreters of a host apart: they run no file of the product.
    const std::optional<Script> script = findScript(caller, process, interpreter);
    if (!script || !isTrustedInterpreter(caller, interpreter, required(process.status("exe"))) ||
        !isScriptOf(caller, process, *script, interpreter)) {
        return {0, Reason::NoRelation, ""};
    }
    if (const std::optional<Reason> reason = caller.outOfScope(process)) {
        return {0, *reason, script->path};
    }
    // The argument was resolved from the caller's root: the process, which may have another (chroot(2)), must find the
    // same folder there.
    if (!caller.sharesInstallRoot(process)) {
        return {0, Reason::NotTheHostsFile, script->path};
    }
    if (!isProven(caller, process, *script, interpreter)) {
        return {0, Reason::Unproven, script->path};
    }
    if (!isFitPath(script->path)) {
        return {CAT_OTHER_THIRD_PARTY, Reason::UnfitPath, script->path};
    }
    return {CAT_CORVANE, Reason::ProductScript, script->path};
}

} // namespace lister
