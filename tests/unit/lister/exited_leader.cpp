// A process whose first thread exits while another one lives on: the kernel shows no executable for it then.
// Its name is "ready" when it can take the signal.
//
//   exited_leader                        its first thread exits at once
//   exited_leader [SCRIPT] leave         at SIGUSR1
//   exited_leader execute PROGRAM        at once; at SIGUSR1 the other one executes the program, "PROGRAM 60"
#include <csignal>
#include <string_view>
#include <thread>

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

sigset_t userSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    return signals;
}

void awaitUserSignal() {
    const sigset_t signals = userSignal();
    int signal = 0;
    sigwait(&signals, &signal);
}

} // namespace

int main(int count, char** arguments) {
    const std::string_view last = arguments[count - 1];
    const char* program = count == 3 && std::string_view(arguments[1]) == "execute" ? arguments[2] : nullptr;
    const sigset_t signals = userSignal();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    prctl(PR_SET_NAME, "ready");
    std::thread([program] {
        if (program != nullptr) {
            awaitUserSignal();
            execl(program, program, "60", nullptr);
        }
        for (;;) {
            pause();
        }
    }).detach();
    if (last == "leave") {
        awaitUserSignal();
    }
    syscall(SYS_exit, 0); // this thread's end alone, and no unwinding
}
