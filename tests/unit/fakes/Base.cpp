// The base library of the made-up host.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "FakeRecords.h"
#include "World.h"
#include "cvbase.h"
#include "cvshutdown.h"

using fakes::FakeProcess;
using fakes::world;

namespace {

CV_Process_s* newRecord(const FakeProcess& process) {
    auto* record = static_cast<CV_Process_s*>(std::malloc(sizeof(CV_Process_s)));
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    fakes::keepRecord(record);
    // What the lister does not fill may hold anything.
    std::memset(static_cast<void*>(record), 0xA5, sizeof *record);
    std::snprintf(record->name, sizeof record->name, "%s", process.name.c_str());
    std::snprintf(record->path, sizeof record->path, "%s", process.path.c_str());
    record->pid = process.pid;
    record->category = process.category;
    record->next = nullptr;
    record->signalled = 1;
    record->excluded = 1;
    return record;
}

} // namespace

int find_processes_CV(CV_Process_s** list, Proc_categories categories, int verbosity) {
    const fakes::Aside aside;
    world().record("list " + std::to_string(categories) + " " + std::to_string(verbosity));
    *list = nullptr;
    if (world().listerStatus != 0) {
        return world().listerStatus;
    }
    CV_Process_s** tail = list;
    for (const FakeProcess& process : world().fleet) {
        const bool isNamedCategory = process.category == 1 || process.category == 2 || process.category == 4;
        if (isNamedCategory && (process.category & categories) == 0) {
            continue;
        }
        *tail = newRecord(process);
        tail = &(*tail)->next;
    }
    return 0;
}

int CV_read_master_config() {
    const fakes::Aside aside;
    world().record("config read");
    return world().configResult;
}

const CV_master_config* get_master_config_ptr() {
    return &world().config;
}

int hask_is_server(const char* host) {
    const fakes::Aside aside;
    world().record("hask_is_server " + std::string(host));
    return world().isServer;
}

int mkdirpath(const char* path, mode_t mode, std::int32_t* status) {
    const fakes::Aside aside;
    char octal[16];
    std::snprintf(octal, sizeof octal, "%04o", static_cast<unsigned int>(mode));
    world().record("mkdirpath " + std::string(path) + " " + octal);
    *status = world().mkdirStatus;
    return world().mkdirResult;
}

int V_snprintf(char* buffer, std::size_t size, const char* format, ...) {
    const fakes::Aside aside;
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int V_cat_snprintf(char* buffer, std::size_t size, const char* format, ...) {
    const fakes::Aside aside;
    const std::size_t used = strnlen(buffer, size);
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer + used, size - used, format, arguments);
    va_end(arguments);
    return static_cast<int>(used) + length;
}

std::size_t _utf8_mbstowcs_len(const char* text) {
    std::size_t count = 0;
    for (; *text != '\0'; ++text) {
        const bool continues = (static_cast<unsigned char>(*text) & 0xC0U) == 0x80U;
        count += continues ? 0 : 1;
    }
    return count;
}
