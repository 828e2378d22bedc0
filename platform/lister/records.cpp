#include "records.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace lister {

namespace {

template <std::size_t Size> void copy(char (&field)[Size], std::string_view text) {
    // calloc has put the NUL behind it.
    std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
}

} // namespace

RecordList::~RecordList() {
    while (m_first != nullptr) {
        std::free(std::exchange(m_first, m_first->next));
    }
}

void RecordList::add(pid_t pid, int category, std::string_view name, std::string_view path) {
    auto* record = static_cast<CV_Process_s*>(std::calloc(1, sizeof(CV_Process_s)));
    if (record == nullptr) {
        throw std::bad_alloc();
    }
    copy(record->name, name);
    copy(record->path, path);
    record->pid = pid;
    record->category = category;
    insert(record);
}

CV_Process_s* RecordList::release() {
    m_last = nullptr;
    return std::exchange(m_first, nullptr);
}

/// /proc lists pids in ascending order, so the place is nearly always the end.
void RecordList::insert(CV_Process_s* record) {
    CV_Process_s** link = m_last != nullptr && m_last->pid < record->pid ? &m_last->next : &m_first;
    while (*link != nullptr && (*link)->pid < record->pid) {
        link = &(*link)->next;
    }
    record->next = *link;
    *link = record;
    if (record->next == nullptr) {
        m_last = record;
    }
}

} // namespace lister
