/// Writes the translators' template from the table of messages. The key is the context and the English text the message
/// id, so that msgfmt checks the conversions of each translation against the English ones.

#include <cstdio>
#include <string>
#include <string_view>

#include "Messages.h"

namespace {

// No creation date: the template changes when a message changes, and only then.
constexpr char kHeader[] = R"(# Messages of cvstop, made from src/shared/Messages.h by the target `pot`.
msgid ""
msgstr ""
"Project-Id-Version: cvstop\n"
"Report-Msgid-Bugs-To: \n"
"PO-Revision-Date: YEAR-MO-DA HO:MI+ZONE\n"
"Last-Translator: FULL NAME <EMAIL@ADDRESS>\n"
"Language-Team: LANGUAGE <LL@li.org>\n"
"Language: \n"
"MIME-Version: 1.0\n"
"Content-Type: text/plain; charset=UTF-8\n"
"Content-Transfer-Encoding: 8bit\n"
)";

std::string escaped(std::string_view text) {
    std::string quoted;
    for (const char byte : text) {
        if (byte == '\n') {
            quoted += "\\n";
            continue;
        }
        if (byte == '"' || byte == '\\') {
            quoted += '\\';
        }
        quoted += byte;
    }
    return quoted;
}

/// One line of quoted text for each line of the message, as gettext's tools write it.
std::string quotedLines(std::string_view text) {
    std::string lines;
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        const std::string_view line = text.substr(0, newline == std::string_view::npos ? newline : newline + 1);
        lines += '"' + escaped(line) + "\"\n";
        text.remove_prefix(line.size());
    }
    return lines;
}

std::string entry(const Message& message) {
    const std::string lines = quotedLines(message.text);
    const bool isOneLine = lines.find('\n') == lines.size() - 1;
    return std::string("\n#. ") + message.note + "\n#, c-format\nmsgctxt \"" + message.key + "\"\nmsgid " +
           (isOneLine ? "" : "\"\"\n") + lines + "msgstr \"\"\n";
}

} // namespace

int main() {
    std::fputs(kHeader, stdout);
    for (const Message& message : kMessages) {
        std::fputs(entry(message).c_str(), stdout);
    }
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}
