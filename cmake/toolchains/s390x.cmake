set(processor s390x)
set(triplet s390x-linux-gnu)
set(emulated s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
