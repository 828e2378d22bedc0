#include "Arguments.h"

#include <cstring>

#include "Messages.h"
#include "cvlog.h"
#include "front.h"

namespace {

constexpr char kUnit[] = "Arguments";

/// What reading one argument leads to when it does not end the parsing; every other value is an Arguments::Result.
constexpr std::int32_t kGoOn = -1;

/// The telemetry handle, open for as long as it lives. What is recorded is dropped at the end unless it was flushed.
class TelemetryScope {
  public:
    TelemetryScope() { cvtelemetry_init(&telemetry, nullptr, nullptr); }
    ~TelemetryScope() {
        cvtelemetry_destroy(telemetry);
        telemetry = nullptr;
    }
    TelemetryScope(const TelemetryScope&) = delete;
    TelemetryScope& operator=(const TelemetryScope&) = delete;
};

void countOption(const char* gauge) {
    cvtelemetry_gauge(telemetry, gauge, 1.0);
}

template <Msg Id> std::int32_t fail() {
    formatMessage<Id>();
    return Arguments::Invalid;
}

std::int32_t readKill(Arguments& args, std::int32_t /*argc*/, const char* const* /*argv*/) {
    args.killLevel = 1;
    return kGoOn;
}

std::int32_t readThirdParty(Arguments& args, std::int32_t /*argc*/, const char* const* /*argv*/) {
    args.thirdParty = true;
    return kGoOn;
}

std::int32_t readList(Arguments& args, std::int32_t /*argc*/, const char* const* /*argv*/) {
    if (args.quiet) {
        return fail<Msg::ListWithQuiet>();
    }
    args.listMode = true;
    return kGoOn;
}

std::int32_t readQuiet(Arguments& args, std::int32_t /*argc*/, const char* const* /*argv*/) {
    if (args.listMode) {
        return fail<Msg::ListWithQuiet>();
    }
    args.quiet = true;
    return kGoOn;
}

std::int32_t readExcludeList(Arguments& args, std::int32_t argc, const char* const* argv) {
    ++args.argIndex;
    if (args.argIndex >= argc) {
        return fail<Msg::NoExcludeListFile>();
    }
    args.excludeListFile = argv[args.argIndex];
    return kGoOn;
}

std::int32_t readHelp(Arguments& /*args*/, std::int32_t /*argc*/, const char* const* /*argv*/) {
    return Arguments::HelpWanted;
}

struct Option {
    const char* exact;
    /// Spellings matched in any case; null after the last.
    const char* anyCase[4];
    /// Counted when the option was read without a failure; null for none.
    const char* gauge;
    std::int32_t (*read)(Arguments&, std::int32_t, const char* const*);
};

/// In the order in which an argument is tried against them. "-e" stands among the long spellings, so "-E" is accepted.
constexpr Option kOptions[] = {
    {"-k", {"-kill"}, "cvstop.kill", readKill},
    {"-3", {"-third_party"}, "cvstop.third_party", readThirdParty},
    {"-l", {"-list"}, "cvstop.list", readList},
    {"-q", {"-quiet"}, "cvstop.quiet", readQuiet},
    {"-b", {"-blacklist", "-e", "-excludelist"}, nullptr, readExcludeList},
    {"-h", {"-help"}, "cvstop.help", readHelp},
};

bool isSpelledBy(const Option& option, const char* argument) {
    if (std::strcmp(argument, option.exact) == 0) {
        return true;
    }
    for (const char* const* spelling = option.anyCase; *spelling != nullptr; ++spelling) {
        if (strcasecmp(argument, *spelling) == 0) {
            return true;
        }
    }
    return false;
}

const Option* findOption(const char* argument) {
    for (const Option& option : kOptions) {
        if (isSpelledBy(option, argument)) {
            return &option;
        }
    }
    return nullptr;
}

std::int32_t refuseUnknown(const char* argument) {
    formatMessage<Msg::UnknownOption>(argument);
    logmsgf(kLogError, "Arguments::parse", "Unknown option [%s]", argument);
    return Arguments::UnknownOption;
}

std::int32_t readArgument(Arguments& args, std::int32_t argc, const char* const* argv) {
    const char* argument = argv[args.argIndex];
    const Option* option = findOption(argument);
    if (option == nullptr) {
        return refuseUnknown(argument);
    }
    const std::int32_t result = option->read(args, argc, argv);
    if (result != Arguments::Invalid && option->gauge != nullptr) {
        countOption(option->gauge);
    }
    return result;
}

std::int32_t checkCombination(const Arguments& args) {
    if (args.thirdParty && args.killLevel != 1 && !args.listMode) {
        return fail<Msg::ThirdPartyAlone>();
    }
    if (args.quiet && args.killLevel != 1) {
        return fail<Msg::QuietAlone>();
    }
    return Arguments::Parsed;
}

} // namespace

Arguments::Arguments() {
    const Tracer trace(CVLogger::s_default, this, "Arguments::Arguments", kUnit);
}

Arguments::Arguments(const Arguments& other) : Arguments() {
    *this = other;
}

Arguments::~Arguments() {
    const Tracer trace(CVLogger::s_default, this, "Arguments::~Arguments", kUnit);
}

std::int32_t Arguments::parse(std::int32_t argc, const char* const* argv) {
    const Tracer trace(CVLogger::s_default, this, "Arguments::parse", kUnit);
    // A program may be started with no argv[0] at all.
    programName = argc > 0 ? argv[0] : "";
    const TelemetryScope telemetryScope;
    for (; argIndex < argc; ++argIndex) {
        const std::int32_t result = readArgument(*this, argc, argv);
        if (result == HelpWanted) {
            // The only road on which gauges are flushed: a help text has no shutdown to hold up.
            cvtelemetry_flush(telemetry);
        }
        if (result != kGoOn) {
            return result;
        }
    }
    if (const std::int32_t result = checkCombination(*this); result != Parsed) {
        return result;
    }
    if (argIndex == 1) {
        killLevel = 1;
        countOption("cvstop.default");
    }
    return Parsed;
}

void Arguments::printUsage() const {
    const Tracer trace(CVLogger::s_default, this, "Arguments::printUsage", kUnit);
    printMessage<Msg::UsageKill>(programName.c_str());
    printMessage<Msg::UsageList>(programName.c_str());
    printMessage<Msg::UsageHelp>(programName.c_str());
}
