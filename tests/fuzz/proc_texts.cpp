// The kernel's texts: a line of maps, of mountinfo, of stat and status, the first bytes of a script, a command line,
// the text of a link. A process may have chosen a good part of each.

#include <string>

#include "Fuzz.h"
#include "interpreters.h"
#include "names.h"
#include "procparse.h"
#include "shebang.h"

namespace {

bool liesIn(std::string_view part, std::string_view whole) {
    return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

void checkLines(std::string_view text) {
    if (const auto stat = lister::parseStat(text)) {
        demand(liesIn(stat->comm, text), "a name lies in its line");
        demand(stat->comm.find(')') == std::string_view::npos || text.rfind(')') > text.find(')'),
               "the last parenthesis ends the name");
    }
    if (const auto maps = lister::parseMapsLine(text)) {
        demand(liesIn(maps->path, text) && !maps->path.starts_with(" "), "a mapping's path lies in its line");
    }
    if (const auto mount = lister::parseMountLine(text)) {
        demand(mount->mountPoint.starts_with("/"), "a mount point is absolute");
    }
    if (const auto shebang = lister::parseShebang(text)) {
        demand(liesIn(shebang->interpreter, text) && liesIn(shebang->argument, text),
               "an interpreter lies in its line");
        demand(shebang->interpreter.find('\n') == std::string_view::npos, "a first line has no second");
        if (const auto program = lister::shebangProgram(*shebang)) {
            demand(!program->empty(), "a program has a name");
        }
    }
    for (const char* interpreter : {"sh", "perl", "python3", "gawk", "busybox", "php", "ruby", "tclsh"}) {
        if (const auto script = lister::scriptArgument(interpreter, text)) {
            demand(liesIn(*script, text) && !script->empty(), "a script is a part of its command line");
            demand(script->find('\0') == std::string_view::npos, "an argument ends at its NUL");
            demand(script->data() + script->size() < text.data() + text.size() &&
                       script->data()[script->size()] == '\0',
                   "a script that may have been cut is none");
        }
    }
    lister::parseArgumentsEnd(text);
    lister::parseEffectiveUid(text);
    lister::parseMountId(text);
    lister::parsePid(text);
    demand(lister::unescapeOctal(text).size() <= text.size(), "an escape grows no text");
}

void checkPath(std::string_view path) {
    const std::string shown = lister::withoutControls(path);
    demand(!lister::hasControls(shown), "what is shown holds no control");
    demand(shown.size() <= path.size(), "what is shown is no longer");
    demand(lister::hasControls(path) == (shown != path), "only controls are hidden");
    demand(path.ends_with(lister::lastComponent(path)), "a name ends its path");
    if (lister::isFitPath(path)) {
        demand(path.size() <= 1023 && !lister::hasControls(path), "a fit path is short and clean");
        demand(path.find_first_of(" \t\n;&|<>()$`\\\"'*?[]#~=!{}^") == std::string_view::npos, "a shell sees one word");
    }
    if (lister::isBelow(path, "/usr/quarn")) {
        demand(path.starts_with("/usr/quarn/") && path.size() > 11, "below is below");
    }
    if (const auto stripped = lister::withoutDeleted(path)) {
        demand(std::string(*stripped) + " (deleted)" == path, "one mark is taken off");
    }
}

} // namespace

FUZZ_TARGET(input) {
    checkLines(input);
    checkPath(input);
}
