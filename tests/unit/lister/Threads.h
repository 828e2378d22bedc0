/// The threads that the lister starts: the linker puts this in place of libc's pthread_create.
#pragma once

#include <chrono>

namespace threads {

/// How many were started so far.
int started();

/// From now on each begins so much later, as on a machine that has no processor for it.
void delay(std::chrono::milliseconds time);

} // namespace threads
