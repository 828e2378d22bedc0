/// The records that the fake process lister hands out, so that a test can check that all are freed.
#pragma once

namespace fakes {

/// Remembers a record until it is freed.
void keepRecord(void* record);

} // namespace fakes
