// peak [-o FILE] COMMAND...: runs the command and prints the most memory that it held, in KiB; or writes it to FILE,
// and leaves the command its streams. From a small program, because what a process held before exec counts as the
// command's.

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv) {
    const char* file = argc > 2 && std::strcmp(argv[1], "-o") == 0 ? argv[2] : nullptr;
    char** command = argv + (file == nullptr ? 1 : 3);
    const pid_t child = argc < 2 ? -1 : fork();
    if (child == 0) {
        if (file == nullptr) {
            const int null = open("/dev/null", O_RDWR);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
        }
        execvp(command[0], command);
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        return 1;
    }
    std::FILE* told = file == nullptr ? stdout : std::fopen(file, "w");
    if (told == nullptr || std::fprintf(told, "%ld\n", usage.ru_maxrss) < 0 || std::fflush(told) != 0) {
        return 1;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 127 ? 127 : 0;
}
