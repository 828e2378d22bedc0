#include "Picture.h"

#include "Text.h"
#include "Times.h"
#include "utf8.h"

namespace watch::picture {

namespace {

std::string escaped(std::string_view text) {
    std::string made;
    for (const char character : text) {
        switch (character) {
        case '&':
            made += "&amp;";
            break;
        case '<':
            made += "&lt;";
            break;
        case '>':
            made += "&gt;";
            break;
        default:
            made += character;
        }
    }
    return made;
}

std::string_view markName(Mark mark) {
    switch (mark) {
    case Mark::command:
        return "c";
    case Mark::signal:
        return "s";
    case Mark::kill:
        return "k";
    case Mark::start:
        break;
    }
    return "b";
}

} // namespace

double widthOf(std::string_view text) {
    return kColumn * static_cast<double>(columns(text));
}

std::string px(double number) {
    std::string text = decimal(number, 1);
    if (text.ends_with(".0")) {
        text.resize(text.size() - 2);
    }
    return text == "-0" ? "0" : text;
}

std::string cut(std::string_view text, std::size_t columns) {
    const std::size_t room = 3 * columns;
    if (text.size() > room) {
        return fitted(std::string(utf8::withoutSplitTail(text.substr(0, room))) + "…", columns);
    }
    return fitted(text, columns);
}

std::string xml(std::string_view text, std::size_t columns) {
    return escaped(cut(text, columns));
}

std::string textAt(double x, double y, std::string_view text, std::string_view style) {
    std::string made = "<text x=\"" + px(x) + "\" y=\"" + px(y) + "\"";
    if (!style.empty()) {
        made.append(" class=\"").append(style).append("\"");
    }
    return made.append(" textLength=\"")
        .append(px(widthOf(text)))
        .append("\">")
        .append(escaped(text))
        .append("</text>");
}

std::string markAt(Mark mark, double x, bool certain) {
    return "<use href=\"#" + std::string(markName(mark)) + "\" x=\"" + px(x) + "\"" +
           (certain ? "" : " class=\"guess\"") + "/>";
}

std::string definitions() {
    return R"(<style>
text { font: 12px ui-monospace, 'DejaVu Sans Mono', 'Liberation Mono', Menlo, Consolas, monospace; fill: #1f2328; }
.head { font-weight: bold; }
.less { fill: #59636e; }
.back { fill: #ffffff; }
.odd { fill: #eef2f7; }
.even { fill: #dfe6ef; }
.line { stroke: #b9c2cc; fill: none; }
.alive { stroke: #8a949f; stroke-dasharray: 2 3; fill: none; }
.zombie { stroke: #c2182b; fill: none; }
.bar { fill: #0a66c2; }
.killed { fill: #b35900; }
.survived { fill: #c2182b; }
use { fill: #1f2328; stroke: #1f2328; }
use.guess { fill: none; }
.row { fill: none; stroke: none; }
.lane:hover .row { stroke: #8a949f; }
.lane:focus { outline: none; }
.lane:focus .row { stroke: #0a66c2; stroke-width: 2; }
@media (prefers-color-scheme: dark) {
text { fill: #e6edf3; }
.less { fill: #9aa5b1; }
.back { fill: #0d1117; }
.odd { fill: #171d26; }
.even { fill: #202835; }
.line { stroke: #4a5562; }
.alive { stroke: #7d8895; }
.zombie { stroke: #ff6b74; }
.bar { fill: #4c9dff; }
.killed { fill: #f0963c; }
.survived { fill: #ff6b74; }
use { fill: #e6edf3; stroke: #e6edf3; }
use.guess { fill: none; }
.lane:focus .row { stroke: #4c9dff; }
}
</style>
<defs>
<circle id="c" r="3" cy="8"/>
<path id="s" d="M-3.5 4.5h7l-3.5 7z"/>
<path id="k" d="M-3.5 4.5l7 7m0 -7l-7 7" stroke-width="2"/>
<path id="b" d="M0 3.5l4 4.5l-4 4.5l-4 -4.5z"/>
</defs>
)";
}

} // namespace watch::picture
