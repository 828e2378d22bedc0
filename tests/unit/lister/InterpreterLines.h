/// Command lines of each interpreter: with a script, and without one. What is expected of the table of options is also
/// what the interpreters themselves do with these lines.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace lister {

/// Command lines without the interpreter's name, with " | " between them: '@' stands for the script, '~' for a blank
/// inside of an argument; CODE, DIR, FILE and COPY for what harms nobody. A '!' before one says that the program of
/// Debian 12 does something else or would not end: it is another version, takes more than its manual says, or serves.
struct InterpreterLines {
    std::string_view interpreter;
    std::string_view withScript;
    /// Code, standard input, a check, or what the manual does not list.
    std::string_view withoutScript;
};

// clang-format off: a row an interpreter
inline constexpr InterpreterLines kInterpreterLines[] = {
    {"sh",
     "@ | @ arg | -e @ | -eu @ | -e -u -x @ | -- @ | - @ | -e -- @ | +e @ | -o pipefail @ | -eo pipefail @ | "
     "-euo pipefail @ | +o nounset @ | +eo nounset @ | -oo errexit nounset @ | -oe pipefail @ | @ -c | -- @ -c | "
     "-i @ | -l @ | --posix @ | --norc -e @ | -norc @ | --rcfile FILE @",
     " | -c @ | -ec @ | -ce @ | -c -- @ | +c @ | -ic @ | -s @ | -es @ | -n @ | -o noexec @ | -o NO_EXEC @ | "
     "-o no-exec @ | +o exec @ | -o stdin @ | -o | -e | -- | - | -- - | - - | -e- @ | -~e @ | -o -e @ | !+ @ | "
     "--rcfile | --norc -c @ | !-T @"},
    {"bash",
     "@ | --norc @ | -norc @ | --noprofile --norc -eu @ | --rcfile FILE @ | -rcfile FILE @ | --init-file FILE -x @ | "
     "--login @ | --posix @ | --restricted @ | --verbose @ | --noediting @ | --debug @ | --debugger @ | !--protected @ "
     "| "
     "-O extglob @ | +O extglob @ | -eO extglob @ | -oO errexit extglob @ | -posix -- @ | -o pipefail @ | !--wordexp @",
     "-c @ | -ec @ | --norc -c @ | -s @ | -n @ | -D @ | --dump-strings @ | --dump-po-strings @ | --pretty-print @ | "
     "--help @ | --version @ | --foo @ | -e -norc @ | +norc @ | --rcfile @ | -rcfile @ | -O @ | -o @ | -eo @"},
    {"dash", "@ | -e @ | -eu @ | -o errexit @ | -oo errexit nounset @ | - @ | -- @ | +ex @",
     "-c @ | -ec @ | -s @ | -n @ | --login @ | -o stdin @ | -o noexec @ | -oerrexit @"},
    {"ksh",
     "@ | -e @ | -o pipefail @ | -opipefail @ | -eo pipefail @ | -eopipefail @ | --posix @ | --pipefail -- @ | "
     "--no-glob @ | - @ | +e @",
     "-c @ | -ec @ | -s @ | -n @ | -D @ | --noexec @ | --no-exec @ | -onoexec @ | -eonoexec @ | !-o -e "
     "@"},
    {"mksh", "@ | -o pipefail @ | -eo pipefail @ | -opipefail @ | -e - @ | -- @ | +e @",
     "-c @ | -ec @ | -s @ | -n @ | -o noexec @ | --posix @ | !-T - @ | !-o -e @"},
    {"lksh", "@ | -e @ | -eo pipefail @", "-c @ | -ec @ | -s @"},
    {"zsh",
     "@ | -f @ | -o pipefail @ | -eopipefail @ | --emulate sh @ | --emulate ksh -e @ | --sh-word-split @ | "
     "-o SH_WORD_SPLIT @ | -0 @ | -- @ | +e @",
     "-c @ | -fc @ | -s @ | -n @ | -o noexec @ | -o NO_EXEC @ | -o shinstdin @ | --shin-stdin @ | --no-exec @ | "
     "--emulate @ | !-b @ | !-e- @"},
    {"perl",
     "@ | -w @ | -wT @ | -w~-T @ | -w~ @ | -w~T @ | -I DIR @ | -IDIR @ | -wI DIR @ | -I~DIR @ | -IDIR~-e1 @ | -Mstrict "
     "@ | "
     "-Mstrict -w @ | -M-strict @ | -mFile::Spec @ | !-d:Trace @ | !-dt:Trace=1 @ | -dw @ | -d @ | -i.bak @ | "
     "-i.bak~-w @ | -i @ | -0777 @ | -0777n @ FILE | -l012 @ | -l012n @ FILE | -F/re/ @ FILE | -F,~-w @ FILE | "
     "-lan @ FILE | -p @ FILE | -C7 @ | -CSD @ | -CS~-w @ | -x @ | -xDIR @ | -Dtls @ | -D14 @ | -S @ | -wS @ | -- @ | "
     "-w -- @ | "
     "-s @ -x | -0 @ | -g @ | !-0xFF @",
     " | -e @ | -E @ | -e1 @ | -ne CODE @ | -lane CODE @ | -we1 @ | -w~-e1 @ | -i.bak~-e1 @ | -F,~-e1 @ | -0777e @ | "
     "-l012e @ | -CS~-e1 @ | -D14~-e1 @ | -c @ | -v @ | -V @ | -V:x @ | -h @ | -u @ | -b @ | --help @ | --version @ | "
     "- @ | - | -w - | -I | !-w- @ | !--~ @ | -S script"},
    {"ruby",
     "@ | -w @ | -Ku @ | -Kuw @ | -I DIR @ | -IDIR @ | -wIDIR @ | -r set @ | -rset @ | -wr set @ | -C DIR @ | -CDIR @ "
     "| "
     "-X DIR @ | -E UTF-8 @ | -EUTF-8:UTF-8 @ | -W0 @ | -W1w @ | -W:no-deprecated @ | !-T1 @ | -0777n @ FILE | "
     "-F, -an @ FILE | -F @ | -i.bak @ | -x @ | -xDIR @ | -S @ | -s @ -x | -v @ | --verbose @ | "
     "--encoding=UTF-8 @ | --encoding UTF-8 @ | --external-encoding UTF-8 @ | --internal-encoding UTF-8 @ | "
     "--enable=did_you_mean @ | --enable rubyopt @ | --disable gems @ | --disable-gems @ | "
     "--enable-frozen-string-literal @ | --backtrace-limit 3 @ | --backtrace-limit=3 @ | --debug @ | "
     "--debug-frozen-string-literal @ | --yjit @ | --mjit-verbose=0 @ | !--jit @ | !--rjit @ | !--parser prism @ | "
     "!--crash-report FILE @ | -- @",
     " | -e @ | -ne CODE @ | -Kue @ | -W0e @ | -c @ | -h @ | -y @ | --version @ | --copyright @ | --help @ | "
     "--dump=insns @ | --dump insns @ | --yydebug @ | --foo @ | -w~-d @ | - @ | -S script | --encoding @ | -I @"},
    {"python",
     "@ | -u @ | -u -W ignore @ | -Wignore @ | -W~ignore @ | -uWignore @ | -uW ignore @ | -X dev @ | -Xdev @ | -EsOO @ "
     "| "
     "-bb @ | -- @ | -u -- @ | --check-hash-based-pycs default @ | !-Q new @ | !-3tt @",
     " | -c @ | -c 1 @ | -Ec @ | -m @ | -m MODULE @ | -um MODULE @ | -mMODULE @ | -h @ | -V @ | -? @ | -J @ | --help @ "
     "| "
     "--version @ | --help-all @ | - @ | -u - @ | -W @ | -~u @ | -u~-E @ | --check-hash-based-pycs @ | -"},
    {"tclsh", "@ | @ -x | -encoding utf-8 @ | -encoding utf-8 @ -x",
     " | - @ | -- @ | -x @ | -encoding @ | -encoding utf-8 | -encoding utf-8 -x @ | -encoding utf-8 -encoding utf-8 @ "
     "| "
     "--encoding utf-8 @ | -encoding=utf-8 @"},
    {"lua", "@ | -i @ | -e x=1 @ | -ex=1 @ | -l string @ | -lstring -v @ | -W -E @ | -e x=1 -- @ | -- @",
     " | - | - @ | -h @ | -vE @ | -iE @ | --x @ | -e | -e @ | -- -"},
    {"php",
     "@ | -q @ | -nq @ | -d x=1 @ | -dx=1 @ | -nd x=1 @ | -c DIR @ | -t DIR @ | -z FILE @ | -f @ | -f@ arg | -nf @ | "
     "-q -f @ -- arg | --file @ | --file=@ | --define x=1 @ | --define=x=1 @ | --php-ini DIR @ | --docroot DIR @ | "
     "--zend-extension FILE @ | --no-php-ini --no-header --no-chdir --profile-info --hide-args @ | !--repeat 2 @ | "
     "-d -r @",
     " | -r @ | -r CODE @ | -R CODE @ | -F @ | -B CODE @ | -E CODE @ | -l @ | -s @ | -w @ | -m @ | -i @ | -v @ | -h @ "
     "| "
     "-? @ | -- @ | -q -- @ | - @ | --run CODE @ | --ini @ | --rf x @ | --syntax-check @ | --process-file @ | "
     "--version @ | "
     "-f | -f - | !-a @ | !--interactive @ | !-S localhost:80 @ | !--server localhost:80 @"},
    {"awk", "-f @ | -f@ | -F: -f @ FILE | -F : -f @ | -v x=1 -vy=2 -f @ | -f @ -f FILE",
     "@ | CODE @ | CODE -f @ | -F: @ | -v x=1 @ | -- @ | -- -f @ | - -f @ | -f | -f - | -e CODE @ | --version -f @"},
    {"gawk",
     "-f @ | -bf @ | -bf@ | --file @ | --file=@ | --fil=@ | -E @ -x | -E@ | --exec @ | --exec=@ | -W exec @ | -W "
     "exec=@ | "
     "-Wfile=@ | -W posix -f @ | -e CODE -f @ | --source CODE -f @ | --source=CODE -f @ | -i FILE -f @ | "
     "--include FILE -f @ | -l time -f @ | --load time -f @ | --assign x=1 --field-separator : -f @ | -dCOPY -f @ | "
     "-d/dev/null -f @ | --dump-variables=COPY -f @ | -Linvalid -f @ | --lint=invalid -f @ | --lint -f @ | --lint-old "
     "-f @ | "
     "-pCOPY -f @ | --profile=COPY -f @ | --characters-as-bytes --no-optimize --non-decimal-data --optimize --posix -f "
     "@ | "
     "--re-interval --sandbox --traditional --use-lc-numeric -f @ | !--bignum --csv --trace -f @ | !-f @ --version",
     "@ | CODE -f @ | -e CODE @ | -C -f @ | !-D -f @ | -g -f @ | -h -f @ | -oCOPY -f @ | -V -f @ | --copyright -f @ | "
     "!--debug -f @ | --gen-pot -f @ | --help -f @ | --pretty-print=COPY -f @ | --version -f @ | --ver -f @ | "
     "-W version -f @ | --= -f @ | -- -f @ | --file | --file="},
    {"mawk",
     "-f @ | -F: -vx=1 -f@ | -W exec @ | -Wexec @ | -We @ | -Winteractive,exec @ | -W interactive -f @ | -Wi -f @ | "
     "-W random=1 -f @ | -Wsprintf=2000,posix_space -f @",
     "@ | CODE -f @ | -W version -f @ | -W dump -f @ | -Wd -f @ | -W help -f @ | -W usage -f @ | -Wi,version -f @ | "
     "!-W ,exec @ | -W | -W exec | -b -f @"},
    {"original-awk", "-f @ | -safe -f @ | --csv -f @ | -F, -f @ | -v x=1 -f@",
     "@ | --version -f @ | -d -f @ | !-V -f @ | !--safe -f @"},
    {"busybox",
     "sh @ | sh -e @ | sh -eo pipefail @ | sh -oo errexit pipefail @ | ash -eu @ | /bin/sh @ | !bash --login @ | "
     "sh --login @ | sh -- @ | sh - @ | sh +e @ | awk -f @ | awk -F: -vx=1 -f@ | awk -e CODE -f @",
     " | @ | sh | sh -c @ | sh -ec @ | sh -s @ | sh -n @ | vi @ | !busybox sh @ | --list @ | awk CODE @ | !awk -E @"},
};
// clang-format on

struct CommandLine {
    std::string_view text;
    bool isRun;
};

inline std::vector<CommandLine> commandLinesIn(std::string_view lines) {
    constexpr std::string_view kSeparator = " | ";
    std::vector<CommandLine> all;
    for (bool isLast = false; !isLast;) {
        const std::size_t length = std::min(lines.find(kSeparator), lines.size());
        isLast = length == lines.size();
        const bool isRun = !lines.starts_with('!');
        all.push_back({lines.substr(isRun ? 0 : 1, isRun ? length : length - 1), isRun});
        lines.remove_prefix(isLast ? length : length + kSeparator.size());
    }
    return all;
}

using Words = std::vector<std::string>;

inline Words wordsOf(std::string_view text, std::string_view script) {
    Words words;
    while (!text.empty()) {
        std::string word(text.substr(0, text.find(' ')));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        std::replace(word.begin(), word.end(), '~', ' ');
        const std::size_t at = word.find('@');
        words.push_back(at == std::string::npos ? word : word.replace(at, 1, script));
    }
    return words;
}

/// As /proc/PID/cmdline has them.
inline std::string commandLineOf(const Words& words) {
    std::string text;
    for (const std::string& word : words) {
        text.append(word).push_back('\0');
    }
    return text;
}

} // namespace lister
