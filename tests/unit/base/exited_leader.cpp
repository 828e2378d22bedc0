// A process whose first thread has exited while another one lives on: the kernel shows no executable for it then.
#include <thread>

#include <pthread.h>
#include <unistd.h>

int main() {
    std::thread([] {
        for (;;) {
            pause();
        }
    }).detach();
    pthread_exit(nullptr);
}
