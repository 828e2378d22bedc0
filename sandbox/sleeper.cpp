// Sleeps as many seconds as its first argument says, under whatever name: on a host whose sleep(1) is a part of
// something else, it is what tests copy.
#include <cstdlib>

#include <unistd.h>

int main(int argc, char** argv) {
    sleep(argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 0);
    return 0;
}
