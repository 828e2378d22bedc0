/// The shutdown plan: the stop commands, one row of the table, the whole walk.
#pragma once

#include <cstdint>
#include <string>

#include "Processes.h"
#include "cvshutdown.h"

/// The stop command last built.
extern std::string command;

// The builders replace `command`. `tail` is a program's name, arguments after it included, taken as it stands.
void InitCommand(CV_Process_s* rec);
void BinCommand(char const* tail);
void VmCommand(char const* tail);
void AdminCommand(char const* tail);
void MoskCommand(char const* tail);

/// Runs a command in the background through the shell, its output discarded, and returns what system() returned: 0 when
/// the shell started it. Whether the program exists does not show.
std::int32_t executeStop(std::string cmd);

/// Carries out a command row, which stops no process: always 0. An undefined action ends the program with status 16 in
/// pass 1; a row that is no command is reported and left alone.
std::int32_t terminateCommand(killDef const& row, int pass);

/// Carries out one row of the table: stops, marks and waits for the processes of its name. Returns how many were
/// handled. `pass` 1 is the orderly pass, any other a harder one; `secondSignal` non-zero makes the signalling rows
/// send a second signal. A row with an undefined action ends the program with status 16 when it meets an active
/// process.
std::int32_t terminateAllProcesses(Processes& procs, killDef const& row, int secondSignal, int pass);

/// Walks the table, then stops the product processes that no row handled, then waits. Returns how many signalled
/// processes are still active.
std::int32_t OrderlyShutdown(Processes& procs, bool secondSignal, int pass);
