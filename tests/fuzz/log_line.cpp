// A record of the debug log, its function and text parted by a newline: whatever they hold, it is one line of at most
// 4,000 bytes that begins as every other and steers no terminal.

#include <string>

#include "Fuzz.h"
#include "logtext.h"
#include "utf8.h"

namespace {

bool isClean(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8::sequenceLength(text);
        const auto first = static_cast<unsigned char>(text[0]);
        const bool isC1 = length == 2 && first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
        if (length == 0 || (length == 1 && (first < 0x20 || first == 0x7F)) || isC1) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace

FUZZ_TARGET(input) {
    const std::string function(takePiece(input, '\n'));
    const std::string text(input);
    std::tm when = {};
    when.tm_year = 126;
    when.tm_mday = 21;
    const std::string line = logtext::recordLine({when, 1000, "client", "cvstop", 7, "info", function, text});
    demand(line.size() <= logtext::kMaxLine, "a line fits one write");
    demand(line.ends_with("\n") && isClean(std::string_view(line).substr(0, line.size() - 1)),
           "a record is one clean line");
    demand(line.find(" client cvstop[7] info ") < 40, "a record begins as every other");
}
