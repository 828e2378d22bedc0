// The exclude-list reader: whatever the file holds, each entry is a trimmed line of it with a separator in it, and
// there is no other.

#include <algorithm>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "Fuzz.h"
#include "UserList.h"

namespace {

std::string trimmed(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t");
    return first == std::string_view::npos ? ""
                                           : std::string(line.substr(first, line.find_last_not_of(" \t") - first + 1));
}

std::vector<std::string> expected(std::string_view text) {
    std::vector<std::string> entries;
    while (!text.empty()) {
        std::string line = trimmed(takePiece(text, '\n'));
        if (!line.empty() && line[0] != '#' && line.find_first_of("/\\") != std::string::npos) {
            entries.push_back(std::move(line));
        }
    }
    return entries;
}

} // namespace

FUZZ_TARGET(input) {
    const int file = memfd_create("list", 0);
    demand(write(file, input.data(), input.size()) == static_cast<ssize_t>(input.size()), "a file can be written");
    UserList list;
    demand(list.setProcessExcludelist("/proc/self/fd/" + std::to_string(file)), "content never fails");
    close(file);
    demand(list.list() == expected(input), "each line with a separator is an entry, trimmed");
}
