set(processor x86_64)
set(triplet x86_64-linux-gnu)
set(emulated x86_64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
