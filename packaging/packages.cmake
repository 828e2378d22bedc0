# The .deb and the .rpm, from one description.
set(CPACK_PACKAGE_NAME cvstop)
set(CPACK_PACKAGE_VENDOR "cvstop maintainers")
set(CPACK_PACKAGE_CONTACT "${maintainer}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "shuts down the Corvane backup software on a client host")
set(CPACK_PACKAGE_DESCRIPTION
"cvstop stops every running process of the product, in a deliberate order:
first politely, then with signals, finally with SIGKILL. It spares whatever
an exclude list names. It can also end other programs that run the product's
code, or simply list what is running. cvstop-watch shows what a shutdown
waits for, and tells afterwards who took long and why.")
set(CPACK_GENERATOR DEB RPM)
# What both worlds call the processor. Where it is not known here they find out themselves.
set(processors x86_64 amd64 aarch64 arm64 ppc64le ppc64el s390x s390x)
list(FIND processors "${CMAKE_SYSTEM_PROCESSOR}" known)
if(NOT known EQUAL -1)
  math(EXPR known "${known} + 1")
  list(GET processors ${known} CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
  set(CPACK_RPM_PACKAGE_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
endif()
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/components.cmake)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_STRIP_FILES ON)
# The paths are the program's own.
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr/quarn/corvane)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_VERBATIM_VARIABLES ON)
# A build folder keeps the times at which its files were made; packages tell one, the same in every build of one tree.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/onetime.cmake)
# Static programs hold much of the same code, of which xz, in one piece, keeps one copy.
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_RPM_COMPRESSION_TYPE xz)
set(CPACK_THREADS 1)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# A dynamically linked program needs the libc that its symbols tell; a static one needs none.
if(NOT CVSTOP_STATIC)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_PACKAGE_SUGGESTS logrotate)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/debian/conffiles ${CMAKE_CURRENT_LIST_DIR}/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_COMPONENT_INSTALL ON)
# What is linked in besides is named in debian/copyright.
set(CPACK_RPM_PACKAGE_LICENSE "LicenseRef-Proprietary")
set(CPACK_RPM_PACKAGE_SUMMARY "Shuts down the Corvane backup software on a client host")
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Base")
# rpm takes a program that finds its own address for one that needs libc's loader, rtld(GNU_HASH).
if(CVSTOP_STATIC)
  set(CPACK_RPM_PACKAGE_AUTOREQ OFF)
else()
  set(CPACK_RPM_PACKAGE_AUTOREQ ON)
endif()
# CPACK_RPM_PACKAGE_SUGGESTS is dropped: CPack asks rpm in a way that newer ones answer with an error.
set(CPACK_RPM_SPEC_MORE_DEFINE
"Suggests: logrotate
%define packager ${CPACK_PACKAGE_CONTACT}
%define _buildhost cvstop
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1")
set(CPACK_RPM_CHANGELOG_FILE ${CMAKE_CURRENT_BINARY_DIR}/rpm-changelog)
set(CPACK_RPM_USER_FILELIST "%config(noreplace) /etc/logrotate.d/cvstop" "%doc /usr/share/doc/cvstop/copyright"
    "%doc /usr/share/doc/cvstop/CHANGELOG.md" "%doc /usr/share/doc/cvstop/shutdown-plan.md"
    "%doc /usr/share/doc/cvstop/watch-schema.json" "%doc /usr/share/doc/cvstop/LGPL-2.1")
foreach(language IN LISTS CVSTOP_LANGUAGES)
  list(APPEND CPACK_RPM_USER_FILELIST
       "%lang(${language}) ${CPACK_PACKAGING_INSTALL_PREFIX}/locale/${language}/LC_MESSAGES/cvstop.mo")
endforeach()
# The system's own folders, which other packages own.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /etc /etc/logrotate.d /usr/quarn /usr/sbin /usr/share/man
    /usr/share/man/man5 /usr/share/man/man8 /usr/share/bash-completion
    /usr/share/bash-completion/completions /usr/share/zsh /usr/share/zsh/site-functions)

include(CPack)
