/// Calls what libc loads at run time. It is built by a test alone, and must not link.
#include <pwd.h>

int main() {
    return getpwnam("root") != nullptr ? 0 : 1;
}
