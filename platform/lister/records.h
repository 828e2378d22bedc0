/// The list under construction.
#pragma once

#include <string_view>

#include <sys/types.h>

#include "cvbase.h"

namespace lister {

/// The records found so far, in ascending pid order; freed unless they are handed over.
class RecordList {
  public:
    RecordList() = default;
    ~RecordList();
    RecordList(const RecordList&) = delete;
    RecordList& operator=(const RecordList&) = delete;

    /// Longer texts are cut to fit. Throws std::bad_alloc.
    void add(pid_t pid, int category, std::string_view name, std::string_view path);

    /// Hands the list to the caller, who frees it record by record.
    CV_Process_s* release();

  private:
    void insert(CV_Process_s* record);

    CV_Process_s* m_first = nullptr;
    CV_Process_s* m_last = nullptr;
};

} // namespace lister
