set(processor aarch64)
set(triplet aarch64-linux-gnu)
set(emulated aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
