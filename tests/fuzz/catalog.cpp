// The bytes of a message catalog: "CONTEXT\nID\n" and then the file. A translation lies within the file, and is text.

#include <string>

#include "Fuzz.h"
#include "mofile.h"
#include "utf8.h"

namespace {

bool isText(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8::sequenceLength(text);
        if (length == 0 || text[0] == '\0') {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace

FUZZ_TARGET(input) {
    const std::string context(takePiece(input, '\n'));
    const std::string id(takePiece(input, '\n'));
    // A copy of its own length, so that a byte beyond it is noticed.
    const std::string bytes(input);
    const auto found = mofile::find(bytes, context, id);
    if (found) {
        demand(found->data() >= bytes.data() && found->data() + found->size() <= bytes.data() + bytes.size(),
               "a translation lies within the catalog");
        demand(!found->empty() && isText(*found), "a translation is text");
    }
}
