// The program's globals, in one unit because their order matters: the logger stands in its default slots before the
// parsed command line, which traces its own construction, and is still there when that is destroyed.

#include "Arguments.h"
#include "Messages.h"
#include "front.h"
#include "shutdown.h"

CVLogger g_logger;
std::string command;
Arguments Args;
char lc_messages[256] = "";
char lc_ctype[256] = "";
char lc_time[256] = "";
char lc_collate[256] = "";
char lc_numeric[256] = "";
qnstatus errsts = {};
char outline[1024] = "";
cvtelemetry_t telemetry = nullptr;
