# Warnings, hardening and the static C++ run time, for every target of the tree.

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_compile_definitions(_FILE_OFFSET_BITS=64)
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast
                    -Wcast-qual -Wundef -Wformat=2 -Wno-format-nonliteral)
if(CVSTOP_WERROR)
  add_compile_options(-Werror)
endif()

# What else the compilers know to warn of, for the program and its libraries; a test framework's macros do not keep to all
# of it. Left out of g++'s is -Wnull-dereference, which finds only Boost's and the C++ library's own code. Left out of
# clang++'s is what speaks against C++20 itself, against the program's globals and tables (built before main), against given
# names (_utf8_mbstowcs_len), against translated formats (checked when they are looked up), against a default beside named
# cases, and against macros of libc.
function(cvstop_warn_strictly)
  # Some of it follows values through the code, for which g++ takes minutes where sanitizers have put theirs.
  if(CVSTOP_WERROR AND NOT CVSTOP_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(
      -Wcast-align=strict -Wlogical-op -Wduplicated-cond -Wduplicated-branches -Wuseless-cast -Wformat-signedness
      -Wformat-overflow=2 -Wformat-truncation=2 -Wdouble-promotion -Wmissing-declarations -Wredundant-decls
      -Woverloaded-virtual -Wextra-semi -Wimplicit-fallthrough=5 -Wsuggest-override -Wzero-as-null-pointer-constant
      -Wunused-macros -Wdate-time -Walloca -Wvla -Wstringop-overflow=4 -Warith-conversion -Wmismatched-tags -Wredundant-tags
      -Wdeprecated-copy-dtor -Wctor-dtor-privacy -Wstrict-null-sentinel -Wsign-promo -Warray-bounds=2 -Wshift-overflow=2
      -Wunused-const-variable=2 -Wcatch-value=3 -Wplacement-new=2 -Wconditionally-supported)
  endif()
  if(CVSTOP_WERROR AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options(
      -Weverything -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-c++20-compat -Wno-padded -Wno-exit-time-destructors
      -Wno-global-constructors -Wno-reserved-identifier -Wno-format-nonliteral -Wno-switch-enum
      -Wno-disabled-macro-expansion)
  endif()
endfunction()

# Neither the program nor its debug information says where it was built. Coverage reads its sources there.
if(NOT CVSTOP_COVERAGE)
  add_compile_options(-ffile-prefix-map=${PROJECT_BINARY_DIR}=build -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()

if(CVSTOP_COVERAGE)
  # Counts are added up across processes that end at the same time.
  add_compile_options(--coverage -fprofile-update=atomic -fprofile-abs-path)
  add_link_options(--coverage)
endif()

if(CVSTOP_SANITIZE)
  add_compile_options(-fsanitize=${CVSTOP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # This check reads memory through a pipe, and takes a process without descriptors to spare, which a test makes, for one
  # with an invalid object.
  add_compile_options(-fno-sanitize=vptr)
  add_link_options(-fsanitize=${CVSTOP_SANITIZE})
else()
  add_compile_options(-fstack-protector-strong)
  # Fortification needs optimisation, and says so with a warning where there is none.
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
  # What of the run time is not used costs relocations and pages at each start.
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections,--as-needed)
  # What is linked with libc as the host has it still must start on hosts without a C++ run time. A static program has it
  # anyway, and these options would end its static linking half way.
  add_link_options($<$<NOT:$<BOOL:$<TARGET_PROPERTY:IS_STATIC>>>:-static-libstdc++>
                   $<$<NOT:$<BOOL:$<TARGET_PROPERTY:IS_STATIC>>>:-static-libgcc>)
endif()
