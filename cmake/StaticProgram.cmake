# Programs that need nothing of the host but the kernel, libc included, and start in less than a dynamically linked one takes
# to find its libraries. Sanitizers and the counting of lines need libc's dynamic form.

# What links a program so: at an address of each start's own, or at a fixed one where libc knows no other way to link it
# statically (2.36 on POWER and Z). Empty where this build does not.
set(CVSTOP_STATIC_LINKING "")
if(CVSTOP_STATIC AND NOT CVSTOP_SANITIZE AND NOT CVSTOP_COVERAGE)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_LINK_OPTIONS -static-pie)
  set(CMAKE_REQUIRED_FLAGS -fPIE)
  check_cxx_source_compiles("int main() { return 0; }" CVSTOP_HAS_STATIC_PIE)
  unset(CMAKE_REQUIRED_FLAGS)
  set(CMAKE_REQUIRED_LINK_OPTIONS -static)
  check_cxx_source_compiles("int main() { return 0; }" CVSTOP_HAS_STATIC_LIBC)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(CVSTOP_HAS_STATIC_PIE)
    set(CVSTOP_STATIC_LINKING -static-pie)
  elseif(CVSTOP_HAS_STATIC_LIBC)
    set(CVSTOP_STATIC_LINKING -static -no-pie)
  else()
    message(FATAL_ERROR "libc's static form is missing (libc.a, in libc6-dev or glibc-static). Install it, or configure with "
                        "-DCVSTOP_STATIC=OFF")
  endif()
endif()

# Links a program so, if this build does. What libc would load at run time all the same (name services, character sets) the
# linker warns of, and may not be called.
function(cvstop_static_program target)
  if(NOT CVSTOP_STATIC_LINKING)
    return()
  endif()
  # With the property set CMake would add -pie, which undoes -static-pie.
  set_property(TARGET ${target} PROPERTY POSITION_INDEPENDENT_CODE)
  set_property(TARGET ${target} PROPERTY IS_STATIC ON)
  target_compile_options(${target} PRIVATE -fPIE)
  target_link_options(${target} PRIVATE ${CVSTOP_STATIC_LINKING} -Wl,--fatal-warnings)
endfunction()
