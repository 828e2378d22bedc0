// The sample daemon: one program, installed under each daemon's and each tool's name, that behaves as a fleet file says
// and writes down what happens to it.
//
//   sampled --start FLEET          starts every line of the fleet, and returns when all are ready
//   PATH --serve FD KEY=VALUE...   is the daemon; FD is told when it is ready
//   PATH -terminate                asks the daemons of the same executable to end (-terminate_local too)
//   TOOL ARGUMENT...               a tool of the product: asks the daemons that it is for to end
//
// A fleet line is "PATH KEY=VALUE...", '#' begins a comment:
//   count=N         that many instances
//   stop=WHEN       what a polite request does: "quick" (default), "never", or a number of seconds
//   ignore=LIST     signals that do not end it: HUP,TERM,INT,QUIT, or "all" for the four
//   life=SECONDS    ends by itself
//   cwd=DIR         works there
//   open=FILE       holds the file open
//   map=FILE        runs the file's code inside
//   script=yes      is sandbox/scriptd, which knows count, stop=quick, stop=never and ignore alone
//   survive=zombie parent=PATH2
//                   is the child of a process of PATH2 that never reaps it

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr char kJournal[] = "/usr/quarn/sandbox/journal";
constexpr char kRegistry[] = "/usr/quarn/sandbox/pids";
constexpr int kReadyTimeoutMs = 60'000;
/// The polite request, as the daemons understand it.
constexpr int kAsked = SIGUSR1;

using Words = std::vector<std::string>;

/// The tools that stop daemons of other names, and which.
struct Tool {
    const char* name;
    const char* argument;
    Words daemons;
};

const std::vector<Tool>& tools() {
    static const std::vector<Tool> table = {
        {"vilohibo", "-all", {"mamegok"}},
        {"humowow", "-terminate", {"dobd"}},
        {"nodakewe", "-t", {"kobd", "nanid", "neded", "borad", "zeld"}},
        {"duzahi_start_stop", "stop", {"dbsrv17", "CV_dbsrv"}},
        {"ndmpsolekagent.stop", "-remove", {"ndmpsolekagent"}},
        {"howivd", "-stop", {"howivd"}},
        {"mubd", "-stop", {"mubd"}},
    };
    return table;
}

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "sampled: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(1);
}

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string ownPath() {
    std::array<char, PATH_MAX> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    return {path.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

/// One write a line, so that lines of many processes never mix. Not kept open: an open file in the product's tree would
/// itself make a process one that uses the product.
void journal(const std::string& kind, const Words& words) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    std::ostringstream line;
    line << now.tv_sec << '.'
         << std::string(6 - std::min<std::size_t>(6, std::to_string(now.tv_nsec / 1000).size()), '0')
         << now.tv_nsec / 1000 << '\t' << kind << '\t' << getpid();
    for (const std::string& word : words) {
        line << '\t' << word;
    }
    line << '\n';
    const int fd = open(kJournal, O_WRONLY | O_APPEND | O_CLOEXEC);
    const std::string text = line.str();
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        fail(kJournal);
    }
    close(fd);
}

// --- the daemon

struct Behaviour {
    int count = 1;
    std::string stop = "quick";
    std::string ignore;
    int life = 0;
    std::string cwd;
    std::string open;
    std::string map;
    std::string parent;
};

Behaviour parseBehaviour(const Words& words) {
    Behaviour behaviour;
    for (const std::string& word : words) {
        const std::string key = word.substr(0, word.find('='));
        const std::string value = word.substr(std::min(word.size(), key.size() + 1));
        if (key == "count") {
            behaviour.count = std::stoi(value);
        } else if (key == "stop") {
            behaviour.stop = value;
        } else if (key == "ignore") {
            behaviour.ignore = value == "all" ? "HUP,TERM,INT,QUIT" : value;
        } else if (key == "life") {
            behaviour.life = std::stoi(value);
        } else if (key == "cwd") {
            behaviour.cwd = value;
        } else if (key == "open") {
            behaviour.open = value;
        } else if (key == "map") {
            behaviour.map = value;
        } else if (key == "parent") {
            behaviour.parent = value;
        } else if (word != "survive=zombie" && word != "script=yes") {
            errno = EINVAL;
            fail("fleet: " + word);
        }
    }
    return behaviour;
}

void takePlace(const Behaviour& behaviour) {
    if (chdir(behaviour.cwd.empty() ? "/" : behaviour.cwd.c_str()) != 0) {
        fail(behaviour.cwd);
    }
    if (!behaviour.open.empty() && open(behaviour.open.c_str(), O_RDONLY) < 0) {
        fail(behaviour.open);
    }
    if (!behaviour.map.empty()) {
        const int fd = open(behaviour.map.c_str(), O_RDONLY);
        if (fd < 0 || mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE, fd, 0) == MAP_FAILED) {
            fail(behaviour.map);
        }
        close(fd);
    }
}

bool isIgnored(const Behaviour& behaviour, int signal) {
    const std::string name = sigabbrev_np(signal);
    return ("," + behaviour.ignore + ",").find("," + name + ",") != std::string::npos;
}

void enterRegistry() {
    std::ofstream(std::string(kRegistry) + "/" + std::to_string(getpid())) << ownPath() << '\n';
}

timespec secondsFromNow(int seconds) {
    timespec when = {};
    clock_gettime(CLOCK_MONOTONIC, &when);
    when.tv_sec += seconds;
    return when;
}

timespec until(const timespec& when) {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long left = (when.tv_sec - now.tv_sec) * 1'000'000'000LL + when.tv_nsec - now.tv_nsec;
    return {static_cast<time_t>(std::max(left, 0LL) / 1'000'000'000),
            static_cast<long>(std::max(left, 0LL) % 1'000'000'000)};
}

[[noreturn]] void end(const char* reason) {
    journal("end", {baseName(ownPath()), reason});
    _exit(0);
}

/// Waits for signals one at a time: nothing of this runs in a handler.
[[noreturn]] void serve(const Behaviour& behaviour, const sigset_t& signals) {
    const std::string name = baseName(ownPath());
    bool hasEnd = behaviour.life > 0;
    const char* reason = "life";
    timespec endsAt = secondsFromNow(behaviour.life);
    for (;;) {
        const timespec left = hasEnd ? until(endsAt) : timespec{3600, 0};
        const int signal = sigtimedwait(&signals, nullptr, &left);
        if (signal < 0) {
            if (errno == EAGAIN && hasEnd) {
                end(reason);
            }
            continue;
        }
        journal("signal", {name, std::string("SIG") + sigabbrev_np(signal)});
        if (signal != kAsked) {
            if (!isIgnored(behaviour, signal)) {
                end("signal");
            }
        } else if (behaviour.stop == "quick") {
            end("asked");
        } else if (behaviour.stop != "never") {
            hasEnd = true;
            reason = "asked";
            endsAt = secondsFromNow(std::stoi(behaviour.stop));
        }
    }
}

sigset_t blockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, kAsked}) {
        sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

[[noreturn]] void runDaemon(const Words& arguments) {
    const sigset_t signals = blockSignals();
    const int ready = std::stoi(arguments.at(0));
    const Behaviour behaviour = parseBehaviour({arguments.begin() + 1, arguments.end()});
    takePlace(behaviour);
    enterRegistry();
    journal("ready", {baseName(ownPath())});
    if (write(ready, "r", 1) != 1) {
        fail("ready");
    }
    close(ready);
    serve(behaviour, signals);
}

// --- polite requests

/// Asks the registered daemons for which `wanted` holds. A pid of the registry may have been used again meanwhile: its
/// executable must still be the one that registered.
template <class Wanted> void ask(Wanted wanted) {
    DIR* registry = opendir(kRegistry);
    if (registry == nullptr) {
        fail(kRegistry);
    }
    while (const dirent* entry = readdir(registry)) {
        std::string path;
        std::getline(std::ifstream(std::string(kRegistry) + "/" + entry->d_name) >> std::ws, path);
        std::array<char, PATH_MAX> now{};
        const std::string link = std::string("/proc/") + entry->d_name + "/exe";
        if (readlink(link.c_str(), now.data(), now.size() - 1) > 0 && path == now.data() && wanted(path)) {
            kill(std::atoi(entry->d_name), kAsked);
        }
    }
    closedir(registry);
}

void runTool(const std::string& path, const Words& arguments) {
    for (const Tool& tool : tools()) {
        if (baseName(path) == tool.name &&
            std::find(arguments.begin(), arguments.end(), tool.argument) != arguments.end()) {
            ask([&](const std::string& daemon) {
                return std::find(tool.daemons.begin(), tool.daemons.end(), baseName(daemon)) != tool.daemons.end();
            });
        }
    }
}

// --- the starter

[[noreturn]] void execDaemon(const std::string& path, int ready, const Words& behaviour) {
    Words arguments = {path, "--serve", std::to_string(ready)};
    arguments.insert(arguments.end(), behaviour.begin(), behaviour.end());
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    execv(path.c_str(), pointers.data());
    fail(path);
}

void leaveStreams() {
    const int null = open("/dev/null", O_RDWR);
    for (const int stream : {0, 1, 2}) {
        dup2(null, stream);
    }
    close(null);
}

/// Becomes a process of `path` that never reaps its one child.
[[noreturn]] void execKeeper(const std::string& keeper, const std::string& path, int ready, const Words& behaviour) {
    Words arguments = {keeper, "--keep", std::to_string(ready), path};
    arguments.insert(arguments.end(), behaviour.begin(), behaviour.end());
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    execv(keeper.c_str(), pointers.data());
    fail(keeper);
}

[[noreturn]] void keep(const Words& arguments) {
    const int ready = std::stoi(arguments.at(0));
    if (fork() == 0) {
        execDaemon(arguments.at(1), ready, {arguments.begin() + 2, arguments.end()});
    }
    close(ready);
    for (;;) {
        pause();
    }
}

/// Starts one detached instance and waits until it is ready.
void startInstance(const std::string& path, const Words& words) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) {
        fail("pipe");
    }
    const Behaviour behaviour = parseBehaviour(words);
    const pid_t child = fork();
    if (child == 0) {
        close(pipe[0]);
        setsid();
        if (fork() != 0) {
            _exit(0);
        }
        leaveStreams();
        if (!behaviour.parent.empty()) {
            execKeeper(behaviour.parent, path, pipe[1], words);
        }
        execDaemon(path, pipe[1], words);
    }
    close(pipe[1]);
    waitpid(child, nullptr, 0);
    pollfd waiting = {pipe[0], POLLIN, 0};
    char byte = 0;
    if (poll(&waiting, 1, kReadyTimeoutMs) != 1 || read(pipe[0], &byte, 1) != 1) {
        errno = ETIMEDOUT;
        fail(path + " did not become ready");
    }
    close(pipe[0]);
}

/// The whole file at once: a daemon must not inherit it, or it would hold a file of the product's tree open.
std::vector<Words> readFleet(const std::string& fleet) {
    std::ifstream file(fleet);
    if (!file) {
        fail(fleet);
    }
    std::vector<Words> lines;
    for (std::string line; std::getline(file, line);) {
        std::istringstream text(line.substr(0, line.find('#')));
        Words words;
        for (std::string word; text >> word;) {
            words.push_back(word);
        }
        if (!words.empty()) {
            lines.push_back(words);
        }
    }
    return lines;
}

void startFleet(const std::string& fleet) {
    for (const Words& line : readFleet(fleet)) {
        const Words behaviour(line.begin() + 1, line.end());
        for (int instance = 0; instance < parseBehaviour(behaviour).count; ++instance) {
            startInstance(line[0], behaviour);
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const Words arguments(argv + 1, argv + argc);
    const std::string first = arguments.empty() ? "" : arguments[0];
    if (first == "--keep") {
        keep({arguments.begin() + 1, arguments.end()});
    }
    if (first == "--start" && arguments.size() == 2) {
        startFleet(arguments[1]);
        return 0;
    }
    journal("start", Words(argv, argv + argc));
    if (first == "--serve") {
        runDaemon({arguments.begin() + 1, arguments.end()});
    }
    const std::string path = ownPath();
    if (first == "-terminate" || first == "-terminate_local") {
        ask([&](const std::string& daemon) { return daemon == path; });
    }
    runTool(path, arguments);
    return 0;
}
