# What `cmake --install` installs, and the two Debian packages that `cpack` makes of it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/kestro2)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/KestroDB)

set_target_properties(kestro_database PROPERTIES EXPORT_NAME Database)
# The libraries lie in one directory and find each other there, wherever it is.
set_target_properties(kestrodb kestroclient kestroplatform PROPERTIES INSTALL_RPATH $ORIGIN)
install(TARGETS kestrodb kestroclient kestroplatform kestro_database EXPORT KestroDB
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  FILE_SET HEADERS DESTINATION ${headers} COMPONENT development
  INCLUDES DESTINATION ${headers})

set_target_properties(kestro-doctor kestro-record kestro-script PROPERTIES
  INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})
install(TARGETS kestro-doctor kestro-script RUNTIME COMPONENT runtime)
install(TARGETS kestro-record RUNTIME COMPONENT development)

install(EXPORT KestroDB NAMESPACE Kestro:: FILE KestroDBTargets.cmake
  DESTINATION ${package_directory} COMPONENT development)
configure_package_config_file(cmake/KestroDBConfig.cmake.in KestroDBConfig.cmake
  INSTALL_DESTINATION ${package_directory} NO_SET_AND_CHECK_MACRO)
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(KestroDBConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/KestroDBConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KestroDBConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT development)

# The prefix is told relative to the file, so that an installed tree may be moved.
file(RELATIVE_PATH up_to_prefix
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/kestrodb.pc.in kestrodb.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kestrodb.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kestrodb)
set(CPACK_PACKAGE_CONTACT "The KestroDB maintainers <maintainers@kestrodb.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkestrodb0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# One of the libraries needs the others, which are in no package yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkestrodb-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkestrodb0 (= ${PROJECT_VERSION})")
include(CPack)
