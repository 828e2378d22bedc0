# Links a program with everything that it needs, libc included: it needs nothing of the host but the kernel, and starts in
# less than a dynamically linked one takes to find its libraries. Sanitizers and the counting of lines need libc's dynamic
# form. What libc would load at run time all the same (name services, character sets) the linker warns of, and may not be
# called.
function(cvstop_link_statically program)
  if(NOT CVSTOP_STATIC OR CVSTOP_SANITIZE OR CVSTOP_COVERAGE)
    return()
  endif()
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_FLAGS -fPIE)
  set(CMAKE_REQUIRED_LINK_OPTIONS -static-pie)
  check_cxx_source_compiles("int main() { return 0; }" CVSTOP_HAS_STATIC_LIBC)
  if(NOT CVSTOP_HAS_STATIC_LIBC)
    message(FATAL_ERROR "libc's static form is missing (libc.a, in libc6-dev or glibc-static). Install it, or configure with "
                        "-DCVSTOP_STATIC=OFF")
  endif()
  # With the property set CMake would add -pie, which undoes -static-pie.
  set_property(TARGET ${program} PROPERTY POSITION_INDEPENDENT_CODE)
  set_property(TARGET ${program} PROPERTY IS_STATIC_PIE ON)
  target_compile_options(${program} PRIVATE -fPIE)
  target_link_options(${program} PRIVATE -static-pie -Wl,--fatal-warnings)
endfunction()
