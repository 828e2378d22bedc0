#include "Threads.h"

#include <atomic>
#include <memory>

#include <pthread.h>
#include <unistd.h>

namespace {

std::atomic<int> g_started = 0;
std::atomic<int> g_delay = 0;

struct Begin {
    int delay;
    void* (*function)(void*);
    void* argument;
};

void* beginLate(void* begin) {
    const std::unique_ptr<Begin> own(static_cast<Begin*>(begin));
    usleep(static_cast<useconds_t>(own->delay) * 1000);
    return own->function(own->argument);
}

} // namespace

namespace threads {

int started() {
    return g_started;
}

void delay(std::chrono::milliseconds time) {
    g_delay = static_cast<int>(time.count());
}

} // namespace threads

// Names given by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
int __real_pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*function)(void*), void* argument);
int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*function)(void*), void* argument);
int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attributes, void* (*function)(void*), void* argument) {
    ++g_started;
    if (g_delay == 0) {
        return __real_pthread_create(id, attributes, function, argument);
    }
    auto begin = std::make_unique<Begin>(Begin{g_delay, function, argument});
    const int error = __real_pthread_create(id, attributes, beginLate, begin.get());
    if (error == 0) {
        static_cast<void>(begin.release()); // the thread's now
    }
    return error;
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
