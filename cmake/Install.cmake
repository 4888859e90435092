# What `cmake --install` installs, in three components: runtime (the libraries), tools (the programs,
# see Programs.cmake) and development.
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

# The file names the prefix relative to itself, so that an installed tree may be moved.
file(RELATIVE_PATH up_to_prefix
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/kestrodb.pc.in kestrodb.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kestrodb.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The pages of docs/ link to each other.
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  FILES_MATCHING PATTERN *.md)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  FILES_MATCHING PATTERN *.cpp)
