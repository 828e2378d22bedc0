// peak COMMAND...: runs the command and prints the most memory that it held, in KiB. From a small program, because
// what a process held before exec counts as the command's.

#include <cstdio>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    const pid_t child = argc < 2 ? -1 : fork();
    if (child == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        return 1;
    }
    std::printf("%ld\n", usage.ru_maxrss);
    return WIFEXITED(status) && WEXITSTATUS(status) == 127 ? 127 : 0;
}
