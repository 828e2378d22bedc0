/// The product's logging library: the debug log, its default logger, entry and exit traces.
///
/// A record is in the file before the next statement runs, because the program may end anywhere. Records are dropped
/// without a sound where the log is not open or cannot be written.
#pragma once

#include <string>
#include <string_view>

/// The levels of logmsgf.
inline constexpr int kLogProgress = 2;
inline constexpr int kLogWarning = 8;
inline constexpr int kLogError = 16;

/// A debug log. The first one constructed becomes the default logger.
class CVLogger {
  public:
    /// Called with the path of a log that has been opened.
    using OpenCallback = void(const char* path);

    /// The loggers that the program's and the product libraries' records go to, or null. Constant-initialised: they may
    /// be read by the static initialisation of any unit.
    static CVLogger* s_default;
    static CVLogger* s_defaultLib;

    /// Puts itself into each default slot that is empty.
    CVLogger();
    /// Closes the log and leaves the slots that it stands in.
    ~CVLogger();
    CVLogger(const CVLogger&) = delete;
    CVLogger& operator=(const CVLogger&) = delete;

    /// Opens logs/`logName`/`logName`.log of the product for appending. `host` and `processName` stand in every record.
    /// Creates no directory. Returns 0, or an errno value; the logger then drops its records.
    int open(const char* host, const char* logName, const char* processName, OpenCallback* callback);

    /// Does the same with the file of that path; open calls it with the product's.
    int openFile(const char* path, const char* host, const char* processName, OpenCallback* callback);

    void setVerbosity(int verbosity) { m_verbosity = verbosity; }
    [[nodiscard]] int verbosity() const { return m_verbosity; }
    void setTracing(bool on) { m_tracing = on; }
    [[nodiscard]] bool tracing() const { return m_tracing; }

    /// Writes a debug record whose level is 1, or at most the verbosity.
    void logDebug(const char* function, int level, const std::string& text);

    /// Writes one record, whatever the verbosity. `label` is the word that stands for its level.
    void write(const char* label, const char* function, const char* text);

  private:
    void append(std::string_view label, std::string_view function, std::string_view text);

    /// The open log, or -1. Plain, so that this door needs no other header than the language's own.
    int m_fd = -1;
    int m_verbosity = 0;
    bool m_tracing = false;
    /// Whether the last write left a line without its end.
    bool m_lineIsOpen = false;
    std::string m_host;
    std::string m_process;
};

/// Writes an entry record when it is created and an exit record when it is destroyed, while the logger is tracing.
class Tracer {
  public:
    /// `logger` and `object` may be null; the texts must outlive the tracer. A tracer that began while tracing was off
    /// writes no exit record either.
    Tracer(CVLogger* logger, const void* object, const char* function, const char* unit, int line = __builtin_LINE());
    ~Tracer();
    Tracer(const Tracer&) = delete;
    Tracer& operator=(const Tracer&) = delete;

  private:
    CVLogger* m_logger;
    const void* m_object;
    const char* m_function;
    const char* m_unit;
    int m_line;
};

/// Writes one formatted record to the default logger.
void logmsgf(int level, const char* function, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// Writes the command-line arguments to the default logger, in one record.
void logparams(int count, char* const* arguments);

/// Makes later records carry the id that the calling process has now; before, they carry the writing process's.
void log_set_pid();

/// The verbosity that applies, given the one configured for the process and the one for the product: the larger.
int log_get_verbose(int process, int product);
void log_set_process_kokaconf_verbose(int verbosity);
/// What was set last; 0 before.
int log_get_process_kokaconf_verbose();
/// The verbosity of the product libraries' default logger, where there is one.
void log_set_verbosity_filter(int verbosity);
