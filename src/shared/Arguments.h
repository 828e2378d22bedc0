/// The parsed command line.
#pragma once

#include <cstdint>
#include <string>

class Arguments {
  public:
    Arguments();
    ~Arguments();
    Arguments(const Arguments& other);
    Arguments& operator=(const Arguments&) = default;

    /// What parse found.
    enum Result : std::int32_t {
        Parsed = 0,
        HelpWanted = 1,
        /// A combination that is not allowed, or an exclude-list option without a file; the message is in `outline`.
        Invalid = 2,
        /// The message is in `outline`.
        UnknownOption = 3,
    };

    /// Reads the command line into the fields and counts each option as a gauge. Prints nothing. A failure leaves the
    /// fields as far as they were set. Returns a value of Result.
    std::int32_t parse(std::int32_t argc, const char* const* argv);

    /// Prints the usage on standard output.
    void printUsage() const;

    /// Index of the argument being read; after a complete parse it equals argc.
    std::int32_t argIndex = 1;
    /// The user's exclude list; empty when none was given.
    std::string excludeListFile;
    /// 1 when a shutdown was asked for.
    std::int32_t killLevel = 0;
    /// Seconds to wait for processes to end. No option changes it.
    std::int32_t waitTime = 30;
    bool listMode = false;
    /// Progress messages are printed while this is set and `quiet` is not. No option changes it.
    bool verbose = true;
    /// Verbosity of the debug log. No option changes it.
    std::int32_t verbosity = 0;
    bool quiet = false;
    bool thirdParty = false;
    /// argv[0].
    std::string programName;
};

/// The command line of this run.
extern Arguments Args;
