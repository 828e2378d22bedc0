# Read by CPack once for each kind of package: what is common, and what is this kind's own.
set(CPACK_COMPONENTS_ALL Unspecified system)
if(CPACK_GENERATOR STREQUAL "DEB")
  list(APPEND CPACK_COMPONENTS_ALL deb)
else()
  list(APPEND CPACK_COMPONENTS_ALL rpm)
endif()
