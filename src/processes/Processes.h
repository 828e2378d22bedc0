/// The snapshot of running processes and what is done with it: look-up, signals, waits, third parties, listing.
///
/// Two rules hold for every signal: never to the program's own pid, never to a record marked `excluded`. A third keeps
/// the promise that records of category 4 are only listed.
#pragma once

#include <iosfwd>
#include <string>

#include "UserList.h"
#include "cvbase.h"
#include "cvshutdown.h"

class Processes {
  public:
    /// Loads the exclude list, then takes a snapshot of the product's processes. Throws std::runtime_error when the
    /// user's exclude list cannot be loaded; ends the program with ExitStatus::NoSnapshot when the lister fails.
    Processes();
    Processes(Proc_categories categories, int verbosity);
    ~Processes();
    Processes(const Processes&) = delete;
    Processes& operator=(const Processes&) = delete;

    /// Takes a new snapshot and returns its first record. Records of the old one are freed. Ends the program with
    /// ExitStatus::NoSnapshot when the lister fails.
    CV_Process_s* getProcesses(int verbosity, Proc_categories categories);

    /// Recomputes `signalled` (0) and `excluded` (by the exclude list) for every record.
    void cleanProcs();

    /// The first record with exactly this name, or null. It becomes the place from which findNextProcess goes on.
    CV_Process_s* findProcess(std::string name);
    /// The next record with exactly this name after the one last found, or null.
    CV_Process_s* findNextProcess(std::string name);

    /// Removes and frees every record with this name, case ignored. Aborts when a look-up has set its cursor, which
    /// could be left dangling.
    void ExcludeProcess(const char* name);

    [[nodiscard]] unsigned int CountProcesses() const;

    /// Whether signal 0 reaches the process. Any failure, EPERM included, means no.
    static bool isProcessActive(const CV_Process_s* proc);

    /// The group (an sgroups value) of the process's row in the shutdown table, or -1 when it has none.
    int findGroup(CV_Process_s* proc);

    /// Sends one signal to one process, unless it is the program itself, excluded, or only listed.
    void KillProcess(CV_Process_s* proc, sig_types signal, bool quiet);

    /// KillProcess for every record whose process is alive.
    void SignalAllProcesses(bool quiet, sig_types signal);

    /// Polls once a second until the process is gone (true) or `seconds` are over (false). More than 30 seconds become
    /// Args.waitTime, and says so on standard output.
    bool WaitForProcess(CV_Process_s* proc, int seconds);

    /// Polls once a second until the signalled processes, or all, are gone or `seconds` are over, telling about it now
    /// and then. Returns how many were still running at the last look.
    int WaitForAllDone(int seconds, bool all, bool quiet);

    /// Sends every terminable third-party process the whole series of signals. Returns how many processes got it.
    int terminate3rdParty(bool quiet);

    /// Prints the whole snapshot with a header on standard output.
    void PrintProcesses() const;

    /// The first record of the snapshot, or null.
    [[nodiscard]] CV_Process_s* list() { return procs; }
    [[nodiscard]] const CV_Process_s* list() const { return procs; }

  private:
    void loadExcludelist();

    /// The first record; the object owns the whole list.
    CV_Process_s* procs = nullptr;
    /// The record last returned by a look-up; not owned.
    CV_Process_s* lastProc = nullptr;
    /// The verbosity last given to getProcesses.
    int verbose = 0;
    UserList userList;
};

/// Unlinks the records with this name, case ignored, and returns them as a list of their own, last one first.
CV_Process_s* exclude_process(CV_Process_s*& list, const char* name);

/// Frees a list of records; null is an empty list.
void free_process_list(CV_Process_s* list);

/// Whether the process is still active; a filter for print_processes.
bool isTerminable(const CV_Process_s* proc);

/// Whether terminate3rdParty would signal the process, but for the exclude list; a filter for print_processes.
bool isTerminable3rdParty(const CV_Process_s* proc);

/// Prints the records that `filter` (null for all) accepts as a table, with or without a header. Nothing is printed
/// where there is no such record.
void print_processes(std::ostream& out, const CV_Process_s* list, bool header, bool (*filter)(const CV_Process_s*));
