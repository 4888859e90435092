# MariaDB Connector/C as the target MariaDB::Connector (Debian: libmariadb-dev).
find_path(MariaDBConnector_INCLUDE_DIR mysql.h PATH_SUFFIXES mariadb)
find_library(MariaDBConnector_LIBRARY mariadb)
mark_as_advanced(MariaDBConnector_INCLUDE_DIR MariaDBConnector_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MariaDBConnector
  REQUIRED_VARS MariaDBConnector_LIBRARY MariaDBConnector_INCLUDE_DIR)

if(MariaDBConnector_FOUND AND NOT TARGET MariaDB::Connector)
  add_library(MariaDB::Connector UNKNOWN IMPORTED)
  set_target_properties(MariaDB::Connector PROPERTIES
    IMPORTED_LOCATION ${MariaDBConnector_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${MariaDBConnector_INCLUDE_DIR})
endif()
