# The Debian packages, which `./dev package` makes with the preset "release": one for each component.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrodb)
set(CPACK_PACKAGE_CONTACT "The KestroDB maintainers <maintainers@kestrodb.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime tools development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(library libkestrodb${KESTRO_SOVERSION})

# kestro_package(COMPONENT NAME SECTION MULTI_ARCH DEPENDS DESCRIPTION); the first line of DESCRIPTION
# is the summary.
function(kestro_package component name section multi_arch depends description)
  string(TOUPPER CPACK_DEBIAN_${component} prefix)
  set(${prefix}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(${prefix}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(${prefix}_PACKAGE_MULTIARCH ${multi_arch} PARENT_SCOPE)
  set(${prefix}_PACKAGE_DEPENDS ${depends} PARENT_SCOPE)
  set(${prefix}_DESCRIPTION ${description} PARENT_SCOPE)
  # Only Debian packages need these; `cmake --install` leaves them out.
  install(FILES COPYRIGHT RENAME copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

# Not empty, it would be the summary of each.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
kestro_package(runtime ${library} libs same ""
  "records and queries for a local MariaDB server
KestroDB is the C++ library through which programs reach the MySQL-compatible
server of their own machine: records that fetch and save themselves, statements
that are output streams, scripts, bulk loads and pools of connections.

This package contains the shared libraries.")
kestro_package(tools kestrodb-tools database foreign "${library} (>= ${version})"
  "programs for users of a local MariaDB server
The programs of KestroDB, a C++ library for the MySQL-compatible server of the
same machine. kestro-doctor checks what a program on the library meets on this
machine, and says how to put right what is wrong. kestro-script runs scripts of
SQL. kestro-record writes a C++ record class for a table.")
kestro_package(development libkestrodb-dev libdevel same "${library} (= ${version})"
  "records and queries for a local MariaDB server (development files)
KestroDB is the C++ library through which programs reach the MySQL-compatible
server of their own machine.

This package contains the headers, the CMake package, the pkg-config file,
documentation and examples.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
# The libraries and programs need libraries of this build, which no installed package has yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# CHANGELOG.md in Debian's form.
find_program(PERL perl)
if(PERL)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)
  execute_process(
    COMMAND ${PERL} cmake/debian/changelog.pl ${CPACK_DEBIAN_PACKAGE_RELEASE} ${CPACK_PACKAGE_CONTACT}
    COMMAND gzip -9n
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    INPUT_FILE CHANGELOG.md OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    COMMAND_ERROR_IS_FATAL ANY)
endif()
include(CPack)
