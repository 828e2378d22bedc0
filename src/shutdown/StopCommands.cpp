#include "shutdown.h"

#include <csignal>
#include <cstdlib>

#include "cvlog.h"
#include "cvpaths.h"

namespace {

constexpr char kRunInBackground[] = " > /dev/null 2>&1 &";

/// Gives a signal its default disposition for as long as it lives. What is ignored stays ignored across exec
/// (signal(7)), and a stop command must not start with the signals that a shutdown ignores for itself.
class DefaultDisposition {
  public:
    explicit DefaultDisposition(int number) : m_number(number) {
        struct sigaction byDefault = {};
        byDefault.sa_handler = SIG_DFL;
        sigaction(m_number, &byDefault, &m_saved);
    }
    ~DefaultDisposition() { sigaction(m_number, &m_saved, nullptr); }
    DefaultDisposition(const DefaultDisposition&) = delete;
    DefaultDisposition& operator=(const DefaultDisposition&) = delete;

  private:
    int m_number;
    struct sigaction m_saved = {};
};

void buildCommand(const std::string& directory, char const* tail) {
    command.clear();
    command += directory;
    command += '/';
    command += tail;
}

} // namespace

void InitCommand(CV_Process_s* rec) {
    command = rec->path;
}

void BinCommand(char const* tail) {
    buildCommand(product::kBinDirectory, tail);
}

void VmCommand(char const* tail) {
    buildCommand(product::kVolumeManagerBinDirectory, tail);
}

void AdminCommand(char const* tail) {
    buildCommand(std::string(product::kBinDirectory) + "/admincmd", tail);
}

void MoskCommand(char const* tail) {
    buildCommand(std::string(product::kMoskDirectory) + "/CorvaneDB", tail);
}

std::int32_t executeStop(std::string cmd) {
    cmd += kRunInBackground;
    logmsgf(kLogProgress, "executeStop", "Executing \"%s\"", cmd.c_str());
    const DefaultDisposition brokenPipe(SIGPIPE);
    const DefaultDisposition hangUp(SIGHUP);
    return std::system(cmd.c_str());
}
