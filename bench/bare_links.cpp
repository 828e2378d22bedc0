// The least that a listing of products can cost: one pass over the process table and one link a process.

#include <cstdio>
#include <cstring>

#include "bare.h"

int main() {
    const int proc = openFolder(AT_FDCWD, "/proc");
    int count = 0;
    forEachEntry(proc, [&](const char* name) {
        char path[64];
        char link[4096];
        count += readLink(proc, joined(path, name, "/exe"), link) > 0 && isProduct(link) ? 1 : 0;
    });
    std::printf("%d\n", count);
    return 0;
}
