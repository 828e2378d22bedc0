#include "front.h"

#include <cstdio>

#include <unistd.h>

#include "Arguments.h"
#include "ExitStatus.h"
#include "Messages.h"
#include "cvbase.h"
#include "cvpaths.h"

namespace {

constexpr char kUnit[] = "Initialize";
constexpr char kFunction[] = "Initialize";

void requireRoot() {
    if (geteuid() != 0) {
        printMessage<Msg::MustBeAdministrator>();
        endProgram(ExitStatus::NotRoot);
    }
}

/// A run goes on without its log.
void createLogDirectory() {
    char directory[1024];
    V_snprintf(directory, sizeof directory, "%s%s%s", product::kLogRoot, "/", product::kProgramName);
    if (access(directory, F_OK) == 0) {
        return;
    }
    std::int32_t status = 0;
    if (mkdirpath(directory, 0755, &status) < 0) {
        printMessage<Msg::NoLogDirectory>(status);
    }
}

const CV_master_config& requireConfiguration() {
    if (CV_read_master_config() != 0) {
        printMessage<Msg::NoMasterConfig>();
        endProgram(ExitStatus::NoConfiguration);
    }
    return *get_master_config_ptr();
}

void setVerbosity(int verbosity) {
    log_set_process_kokaconf_verbose(verbosity);
    log_set_verbosity_filter(verbosity);
    g_logger.setVerbosity(log_get_process_kokaconf_verbose());
}

void openLog(const CV_master_config& configuration) {
    g_logger.open(configuration.name.c_str(), product::kProgramName, product::kProgramName, nullptr);
    CVLogger::s_default = &g_logger;
    CVLogger::s_defaultLib = &g_logger;
}

void requireClient() {
    if (hask_is_server("localhost") != 0) {
        printMessage<Msg::ClientsOnly>();
        logmsgf(kLogError, kFunction, "Attempt to run cvstop on a server, clients support only");
        endProgram(ExitStatus::ServerHost);
    }
}

} // namespace

void Initialize() {
    const Tracer trace(CVLogger::s_default, nullptr, kFunction, kUnit);
    requireRoot();
    log_set_pid();
    createLogDirectory();
    const CV_master_config& configuration = requireConfiguration();
    if (!Args.verbose) {
        setVerbosity(log_get_verbose(configuration.verbosity, configuration.verbosity));
    }
    openLog(configuration);
    requireClient();
}

void applyVerbosity() {
    if (Args.verbose) {
        setVerbosity(Args.verbosity);
    }
    if (Args.verbosity > 4) {
        g_logger.setTracing(true);
    }
}
