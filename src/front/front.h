/// The front end: start-up checks, the confirmation prompt, shutdown mode.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "Processes.h"
#include "cvlog.h"
#include "cvmessages.h"
#include "cvshutdown.h"
#include "cvtelemetry.h"

extern CVLogger g_logger;

/// Open only while the command line is parsed.
extern cvtelemetry_t telemetry;

// The names of the user's locale, filled once at the start of main; lc_messages is declared with the messages.
extern char lc_ctype[256];
extern char lc_time[256];
extern char lc_collate[256];
extern char lc_numeric[256];
extern qnstatus errsts;

/// Makes descriptors 0 to 2 exist, on /dev/null where they are closed, so that no file of ours takes the place of a
/// standard stream; and makes standard output line-buffered whatever it is.
void prepareStandardStreams();

/// Checks that the program may run here and opens the debug log. Returns only when it may; otherwise it tells the user
/// and ends the program: NotRoot, NoConfiguration, ServerHost.
void Initialize();

/// Applies the command line's verbosity to the logging library.
void applyVerbosity();

/// Asks once. Only an answer whose first character is y or Y is a yes.
bool confirmAction(const std::string& prompt, std::ostream& out, std::istream& in);

/// Takes the snapshot of the run. Ends the program with NoSnapshot, and a log record alone, when that throws a standard
/// exception.
std::unique_ptr<Processes> takeSnapshot(Proc_categories categories);

/// Stops the product. Returns the program's exit status: 0 when the snapshot is empty at the end, else 1.
int runShutdownMode(Proc_categories categories);
