/// Everything that the program says to its user: the one table of messages, and the functions that format and print
/// them.
///
/// A message whose conversions do not fit the arguments at a call does not compile.
#pragma once

#include <cstddef>
#include <cstdio>
#include <type_traits>

#include "cvmessages.h"

enum class Msg : std::size_t {
    ConfirmShutdown,
    GatheringProcesses,
    InitiatingShutdown,
    NothingToTerminate,
    StillActive,
    KillingRemaining,
    AllTerminated,
    ThirdPartyActive,
    MustBeAdministrator,
    NoLogDirectory,
    NoMasterConfig,
    ClientsOnly,
    UndefinedProcessAction,
    RequestingTermination,
    UndefinedCommandAction,
    UnimplementedCommand,
    AllSpecifiedTerminated,
    ListWithQuiet,
    ThirdPartyAlone,
    QuietAlone,
    NoExcludeListFile,
    UnknownOption,
    UsageKill,
    UsageList,
    UsageHelp,
    HeadingName,
    HeadingPath,
    HeadingPid,
    HeadingCategory,
    CategoryProduct,
    CategoryThirdParty,
    ListerFailed,
    WaitingFor,
    HasNotTerminated,
    SignalingProcess,
    TerminatingThirdParty,
    ExcludeListNotLoaded,
    Count_,
};

struct Message {
    Msg id;
    /// The key in the catalog, literally.
    const char* key;
    /// The English text, a printf format of %d and %s.
    const char* text;
    /// When the user meets it; for translators.
    const char* note;
};

inline constexpr Message kMessages[] = {
    {Msg::ConfirmShutdown, "MsgCvs0003N",
     "Corvane software will be shut down.  This may cause backups to fail.\nDo you wish to proceed? (y/n) ",
     "Asked before a shutdown if no option was given. An answer that begins with y or Y means yes, in every language."},
    {Msg::GatheringProcesses, "MsgCvs0005N", "Gathering process information.\n",
     "The first line that a shutdown prints."},
    {Msg::InitiatingShutdown, "MsgCvs0010N", "Initiating Orderly shutdown, %d processes active\n",
     "%d: the number of processes found."},
    {Msg::NothingToTerminate, "MsgCvs0015N", "Nothing to terminate.\n", "No process was found."},
    {Msg::StillActive, "MsgCvs0023N", "\nThere are still processes active.\n",
     "Heading of the list of processes that survived the orderly shutdown."},
    {Msg::KillingRemaining, "MsgCvs0025N", "\n***** Attempting to kill remaining %d process(es).\n",
     "Before the survivors are killed. %d: their number."},
    {Msg::AllTerminated, "MsgCvs0030N", "All processes terminated normally.\n",
     "The survivors that were killed have ended."},
    {Msg::ThirdPartyActive, "MsgCvs0033N", "\nThere are %d 3rd party processes active.\n",
     "Heading of the list of other programs that use the product. %d: their number."},
    {Msg::MustBeAdministrator, "MsgCvs0040N", "Must be Administrator.\n", "The program was not started by root."},
    {Msg::NoLogDirectory, "MsgCvs0042N", "Unable to create log file.  status=%d.  Continuing without logging.\n",
     "The log directory cannot be created. %d: the system's error number."},
    {Msg::NoMasterConfig, "MsgCvs0045N", "Failed to read Master Config.\n",
     "The host configuration is missing or malformed."},
    {Msg::ClientsOnly, "MsgCvs0050N", "Currently only supported on clients.\n", "The host is a server of the product."},
    {Msg::UndefinedProcessAction, "MsgCvs0065N", "Unimplemented Definition(0) %s %d.\n",
     "Fault in the shutdown table. %s: the name of the process, %d: the number of its action."},
    {Msg::RequestingTermination, "MsgCvs0070N", "Requesting termination of %s.\n",
     "A stop command was started. %s: the path of the program that it stops."},
    {Msg::UndefinedCommandAction, "MsgCvs0075N", "Unimplemented Definition(1) %s, %d %d .\n",
     "Fault in the shutdown table. %s: the name of the command, %d: the number of its action, %d: a constant."},
    {Msg::UnimplementedCommand, "MsgCvs0085N", "Unimplemented command, %s %d\n",
     "Fault in the shutdown table. %s: the name of the command, %d: a constant."},
    {Msg::AllSpecifiedTerminated, "MsgCvs0090N", "All Corvane specified processes terminated normally.\n",
     "The orderly shutdown has stopped everything that it had to stop."},
    {Msg::ListWithQuiet, "MsgCvs0100N", "Invalid argument. List cannot be combined with quiet\n", "Bad command line."},
    {Msg::ThirdPartyAlone, "MsgCvs0105N", "Invalid argument. Third party must be combined with -k or -l.\n",
     "Bad command line. Leave -k and -l as they are."},
    {Msg::QuietAlone, "MsgCvs0107N", "Invalid argument. Quiet must be combined with kill.\n", "Bad command line."},
    {Msg::NoExcludeListFile, "MsgCvs0143N", "Exclude-list file not specified with -b or -e (-excludelist) option\n",
     "Bad command line. Leave the options as they are."},
    {Msg::UnknownOption, "MsgCvs0145N", "Unknown option [%s]\n",
     "Bad command line. %s: the argument that is not an option."},
    {Msg::UsageKill, "MsgCvs0155N", "Usage:\n %s [ -k | -kill [ -3 | -third_party ] [ -q | -quiet ] ]\n",
     "Usage, first line. %s: the name of the program. Leave the options as they are."},
    {Msg::UsageList, "MsgCvs0165N", " %s -l | -list [ -3 | -third_party ]\n",
     "Usage, second line. %s: the name of the program. Leave the options as they are."},
    {Msg::UsageHelp, "MsgCvs0190N", " %s -h | -help\n",
     "Usage, third line. %s: the name of the program. Leave the options as they are."},
    {Msg::HeadingName, "MsgCvs0205N", "Name", "Column heading: the name of the process. At most 63 bytes."},
    {Msg::HeadingPath, "MsgCvs0210N", "Path", "Column heading: the path of the executable. At most 63 bytes."},
    {Msg::HeadingPid, "MsgCvs0215N", "Pid", "Column heading: the process id. At most 63 bytes."},
    {Msg::HeadingCategory, "MsgCvs0220N", "Category",
     "Column heading: whether the process is one of the product or a third party's. At most 63 bytes."},
    {Msg::CategoryProduct, "MsgCvs0221N", "Corvane",
     "Category: one of the product's own processes. The product's name. At most 63 bytes."},
    {Msg::CategoryThirdParty, "MsgCvs0222N", "Third Party", "Category: any other process. At most 63 bytes."},
    {Msg::ListerFailed, "MsgCvs0227N", "find_process_CV failed with status %d\n",
     "The process table cannot be read. %d: the system's error number. Leave the name of the function as it is."},
    {Msg::WaitingFor, "MsgCvs0235N", "Waiting for %d processes to terminate. (Active process(es): %s)\n",
     "%d: the number of processes, %s: their names with pids."},
    {Msg::HasNotTerminated, "MsgCvs0240N", "%s (%d) has not terminated\n",
     "After a wait. %s: the name of the process, %d: its pid."},
    {Msg::SignalingProcess, "MsgCvs0255N", "Signaling process %s\n",
     "%s: the path of the program that is sent a signal."},
    {Msg::TerminatingThirdParty, "MsgCvs0260N", "Terminating third party process, %s pid-%d\n",
     "%s: the name of the process, %d: its pid."},
    // The key really has three digits.
    {Msg::ExcludeListNotLoaded, "MsgCvs281N", "Failed to load user-specified exclude list: %s\n",
     "The file given on the command line cannot be opened. %s: its name."},
};

namespace messages_detail {

constexpr bool isInOrder() {
    std::size_t position = 0;
    for (const Message& row : kMessages) {
        if (row.id != static_cast<Msg>(position++)) {
            return false;
        }
    }
    return position == static_cast<std::size_t>(Msg::Count_);
}
static_assert(isInOrder(), "kMessages is indexed by Msg");

template <class Argument> constexpr char conversionFor() {
    if constexpr (std::is_integral_v<Argument>) {
        return sizeof(Argument) == sizeof(int) ? 'd' : '?';
    } else {
        return std::is_convertible<Argument, const char*>::value ? 's' : '?';
    }
}

/// Whether the conversions in `text` are exactly those that the arguments need, in order.
template <class... Arguments> constexpr bool conversionsFit(const char* text) {
    const char wanted[] = {conversionFor<std::decay_t<Arguments>>()..., '\0'};
    std::size_t seen = 0;
    for (; *text != '\0'; ++text) {
        if (*text != '%') {
            continue;
        }
        ++text;
        if (seen == sizeof...(Arguments) || *text != wanted[seen]) {
            return false;
        }
        ++seen;
    }
    return seen == sizeof...(Arguments);
}

} // namespace messages_detail

/// The one buffer that messages are formatted into before they are printed.
extern char outline[1024];

/// The user's locale for messages, filled once at start.
extern char lc_messages[256];

template <Msg Id> constexpr const Message& messageRow() {
    return kMessages[static_cast<std::size_t>(Id)];
}

/// Formats a message into a buffer of the caller's.
template <Msg Id, std::size_t Size, class... Arguments>
void formatMessageInto(char (&buffer)[Size], const Arguments&... arguments) {
    constexpr const Message& row = messageRow<Id>();
    static_assert(messages_detail::conversionsFit<Arguments...>(row.text));
    // clang warns of a format without arguments that is no literal; this one has just been checked.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    qngetmsg(row.key, lc_messages, Size, buffer, 0, 0, 0, row.text, arguments...);
#pragma GCC diagnostic pop
}

/// Formats a message into `outline`, to be printed later with printOutline.
template <Msg Id, class... Arguments> void formatMessage(const Arguments&... arguments) {
    formatMessageInto<Id>(outline, arguments...);
}

/// Prints `outline` on standard output as it stands.
inline void printOutline() {
    std::printf("%s", outline);
}

/// Formats a message into `outline` and prints it.
template <Msg Id, class... Arguments> void printMessage(const Arguments&... arguments) {
    formatMessage<Id>(arguments...);
    printOutline();
}
