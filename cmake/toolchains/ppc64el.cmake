set(processor ppc64le)
set(triplet powerpc64le-linux-gnu)
set(emulated ppc64le)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
