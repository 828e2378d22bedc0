// The message and telemetry libraries of the made-up host.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "World.h"
#include "cvmessages.h"
#include "cvtelemetry.h"

using fakes::world;

struct cvtelemetry {
    int opened = 0;
};

namespace {

cvtelemetry g_telemetry;

void setLocale(char* buffer, std::size_t size, const std::string& name) {
    std::snprintf(buffer, size, "%s", name.c_str());
}

std::string handleName(cvtelemetry_t handle) {
    return handle == &g_telemetry ? "" : " NO HANDLE";
}

} // namespace

int qngetmsg(const char* key, const char* locale, std::size_t size, char* buffer, int reserved1, int reserved2,
             int reserved3, const char* defaultFormat, ...) {
    const fakes::Aside aside;
    world().record("msg " + std::string(key));
    world().lookups.push_back({key, locale, size, buffer, reserved1 | reserved2 | reserved3, defaultFormat});
    const auto translation = world().translations.find(key);
    const char* format = translation == world().translations.end() ? defaultFormat : translation->second.c_str();
    va_list arguments;
    va_start(arguments, defaultFormat);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int qngetlocaleEx(char* messages, std::size_t messagesSize, char* ctype, std::size_t ctypeSize, char* time,
                  std::size_t timeSize, char* collate, std::size_t collateSize, char* numeric, std::size_t numericSize,
                  qnstatus* status) {
    const fakes::Aside aside;
    const bool areFull = messagesSize == 256 && ctypeSize == 256 && timeSize == 256 && collateSize == 256 &&
                         numericSize == 256 && status != nullptr;
    world().record(areFull ? "getlocale" : "getlocale WRONG SIZES");
    setLocale(messages, messagesSize, world().localeName);
    setLocale(ctype, ctypeSize, "ctype");
    setLocale(time, timeSize, "time");
    setLocale(collate, collateSize, "collate");
    setLocale(numeric, numericSize, "numeric");
    return 1;
}

int cvtelemetry_init(cvtelemetry_t* handle, const char* address, const char* prefix) {
    const fakes::Aside aside;
    const bool areNull = address == nullptr && prefix == nullptr;
    world().record(areNull ? "telemetry init" : "telemetry init WITH ARGUMENTS");
    *handle = &g_telemetry;
    ++g_telemetry.opened;
    return world().telemetryResult;
}

int cvtelemetry_gauge(cvtelemetry_t handle, const char* name, double value) {
    const fakes::Aside aside;
    char text[64];
    std::snprintf(text, sizeof text, "%g", value);
    world().record("gauge " + std::string(name) + " " + text + handleName(handle));
    return world().telemetryResult;
}

int cvtelemetry_flush(cvtelemetry_t handle) {
    const fakes::Aside aside;
    world().record("telemetry flush" + handleName(handle));
    return world().telemetryResult;
}

int cvtelemetry_destroy(cvtelemetry_t handle) {
    const fakes::Aside aside;
    world().record("telemetry destroy" + handleName(handle));
    return world().telemetryResult;
}
