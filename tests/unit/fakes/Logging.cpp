// The logging library of the made-up host.
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "World.h"
#include "cvlog.h"

using fakes::world;

constinit CVLogger* CVLogger::s_default = nullptr;
constinit CVLogger* CVLogger::s_defaultLib = nullptr;

namespace {

/// "text(Unit:123)" becomes "text(Unit:#)"; anything that does not end like that stays.
std::string withoutLineNumber(const std::string& text) {
    if (text.empty() || text.back() != ')') {
        return text;
    }
    std::size_t digits = text.size() - 1;
    while (digits > 0 && std::isdigit(static_cast<unsigned char>(text[digits - 1])) != 0) {
        --digits;
    }
    const bool isSite = digits < text.size() - 1 && digits > 0 && text[digits - 1] == ':';
    return isSite ? text.substr(0, digits) + "#)" : text;
}

std::string textOrNull(const void* pointer, const char* text) {
    return pointer == nullptr ? "null" : text;
}

} // namespace

CVLogger::CVLogger() {
    const fakes::Aside aside;
    s_default = s_default == nullptr ? this : s_default;
    s_defaultLib = s_defaultLib == nullptr ? this : s_defaultLib;
}

CVLogger::~CVLogger() {
    const fakes::Aside aside;
    s_default = s_default == this ? nullptr : s_default;
    s_defaultLib = s_defaultLib == this ? nullptr : s_defaultLib;
}

int CVLogger::open(const char* host, const char* logName, const char* processName, OpenCallback* callback) {
    const fakes::Aside aside;
    m_host = host;
    m_process = processName;
    world().record("open " + m_host + " " + logName + " " + m_process + (callback == nullptr ? " null" : " callback"));
    return 0;
}

void CVLogger::logDebug(const char* function, int level, const std::string& text) {
    const fakes::Aside aside;
    world().record("debug " + std::to_string(level) + " " + function + ": " + withoutLineNumber(text));
}

void CVLogger::write(const char* label, const char* function, const char* text) {
    const fakes::Aside aside;
    world().record("write " + std::string(label) + " " + function + ": " + text);
}

Tracer::Tracer(CVLogger* logger, const void* object, const char* function, const char* unit, int line)
    : m_logger(logger), m_object(object), m_function(function), m_unit(unit), m_line(line) {
    const fakes::Aside aside;
    const bool isComplete = m_logger != nullptr && m_logger == CVLogger::s_default && m_line > 0;
    world().record("enter " + std::string(m_function) + " " + m_unit + " " + textOrNull(m_object, "this") +
                   (isComplete ? "" : " INCOMPLETE"));
}

Tracer::~Tracer() {
    const fakes::Aside aside;
    world().record("leave " + std::string(m_function));
}

void logmsgf(int level, const char* function, const char* format, ...) {
    const fakes::Aside aside;
    va_list arguments;
    va_start(arguments, format);
    std::vector<char> text(8192);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    world().record("log " + std::to_string(level) + " " + function + ": " + text.data());
}

void logparams(int count, char* const* arguments) {
    const fakes::Aside aside;
    std::string entry = "logparams " + std::to_string(count);
    for (int index = 0; index < count; ++index) {
        entry += " ";
        entry += arguments[index];
    }
    world().record(entry);
}

void log_set_pid() {
    const fakes::Aside aside;
    world().record("log_set_pid");
}

int log_get_verbose(int process, int product) {
    const fakes::Aside aside;
    world().record("log_get_verbose " + std::to_string(process) + " " + std::to_string(product));
    return world().verboseResult;
}

void log_set_process_kokaconf_verbose(int verbosity) {
    const fakes::Aside aside;
    world().record("log_set_process_kokaconf_verbose " + std::to_string(verbosity));
    world().kokaVerbosity = verbosity;
}

int log_get_process_kokaconf_verbose() {
    const fakes::Aside aside;
    world().record("log_get_process_kokaconf_verbose");
    return world().kokaVerbosity;
}

void log_set_verbosity_filter(int verbosity) {
    const fakes::Aside aside;
    world().record("log_set_verbosity_filter " + std::to_string(verbosity));
}
