#include "ProgramPath.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include "cvpaths.h"

namespace watch {

namespace {

/// 0, or why the file cannot be executed.
int executeError(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return errno == ENOTDIR ? ENOENT : errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return EACCES;
    }
    return ::access(path.c_str(), X_OK) == 0 ? 0 : errno;
}

} // namespace

ProgramPath findProgram(const std::string& name, const std::string& searchPath) {
    if (name.find('/') != std::string::npos) {
        const int error = executeError(name);
        return {error == 0 ? name : "", error};
    }
    const std::string folders = searchPath + ':' + product::kBinDirectory;
    int error = ENOENT;
    for (std::size_t begin = searchPath.empty() ? 1 : 0; begin <= folders.size();) {
        const std::size_t end = std::min(folders.find(':', begin), folders.size());
        // An empty entry is the working directory (environ(7)).
        const std::string folder = end == begin ? "." : folders.substr(begin, end - begin);
        const std::string path = folder + '/' + name;
        const int here = executeError(path);
        if (here == 0) {
            return {path, 0};
        }
        // As a shell does it: a file that may not be executed is remembered, and looking goes on.
        error = error == ENOENT ? here : error;
        begin = end + 1;
    }
    return {"", error};
}

} // namespace watch
