# Fails unless the newest heading of the changelog FILE is of VERSION and DATE.
file(STRINGS ${FILE} headings REGEX "^## ")
list(GET headings 0 newest)
if(NOT newest STREQUAL "## ${VERSION}, ${DATE}" AND NOT newest STREQUAL "## ${VERSION}, not yet released")
  message(FATAL_ERROR "The newest heading of ${FILE} is `${newest}`, but CMakeLists.txt has VERSION ${VERSION} and "
          "CVSTOP_RELEASE_DATE ${DATE}. Edit one of them: the heading is `## ${VERSION}, ${DATE}`, or, while it is worked on, "
          "`## ${VERSION}, not yet released`.")
endif()
