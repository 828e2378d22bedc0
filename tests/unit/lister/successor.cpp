// A process that executes another program at SIGUSR1, with an empty environment. Its name is "ready" by then.
//
//   successor [SCRIPT] execute PROGRAM [ARGUMENT]...
#include <csignal>
#include <cstring>

#include <sys/prctl.h>
#include <unistd.h>

int main(int /*count*/, char** arguments) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    prctl(PR_SET_NAME, "ready");
    int signal = 0;
    sigwait(&signals, &signal);
    while (std::strcmp(*arguments, "execute") != 0) {
        ++arguments;
    }
    char* environment[] = {nullptr};
    execve(arguments[1], arguments + 1, environment);
    return 127;
}
