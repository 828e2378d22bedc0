# What the four toolchains share: the compiler that Debian has for the processor `processor`, whose programs run under
# `triplet`. On a machine of that very processor it is the machine's own.
set(CMAKE_CXX_COMPILER ${triplet}-g++)
if(CMAKE_HOST_SYSTEM_PROCESSOR STREQUAL processor)
  return()
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${processor})
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
# Debian's compilers look into the build machine's /usr/include last, where a header that the other processor lacks would be
# found silently. Below this root there is none.
set(CMAKE_SYSROOT_COMPILE /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Header-only libraries are the same for every processor: these folders alone are taken from the build machine.
set(headers ${CMAKE_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${headers})
foreach(library IN ITEMS boost nlohmann)
  if(EXISTS /usr/include/${library})
    file(CREATE_LINK /usr/include/${library} ${headers}/${library} SYMBOLIC)
  endif()
endforeach()
set(Boost_INCLUDE_DIR ${headers} CACHE PATH "Boost's headers, and nothing else")
set(nlohmann_json_DIR /usr/share/cmake/nlohmann_json CACHE PATH "JSON for Modern C++")
set(CVSTOP_HEADERS ${headers})

find_program(emulator NAMES qemu-${emulated}-static qemu-${emulated} NO_CMAKE_FIND_ROOT_PATH NO_CACHE)
if(emulator)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triplet})
endif()
