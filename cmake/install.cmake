# What an installation holds. It may be moved as a whole: nothing in it knows where it was installed.
include(CMakePackageConfigHelpers)

foreach(folder IN ITEMS BINDIR LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    message(FATAL_ERROR "CMAKE_INSTALL_${folder} is to be relative to the installation, not ${CMAKE_INSTALL_${folder}}.")
  endif()
endforeach()

# sqldb_install(TARGET COMPONENT HEADERS): the library that programs need goes to COMPONENT, the rest to Development.
function(sqldb_install target component headers)
  install(TARGETS ${target} EXPORT sqldbTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT Development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)
endfunction()

# sqldb_install_pkg_config(NAME): from cmake/NAME.pc.in.
file(RELATIVE_PATH SQLDB_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" SQLDB_PREFIX_FROM_PC ${SQLDB_PREFIX_FROM_PC})
function(sqldb_install_pkg_config name)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
endfunction()

sqldb_install(sqldb Runtime include/sqldb)
sqldb_install_pkg_config(sqldb)
set(SQLDB_COMPONENTS "sqldb")
if(SQLDB_USES_KIT)
  sqldb_install(sqldb_kit KitRuntime kit/include/sqldb)
  sqldb_install_pkg_config(sqldb-kit)
  set_target_properties(sqldb_kit PROPERTIES EXPORT_NAME kit)
  string(APPEND SQLDB_COMPONENTS " and kit")
  # A program that calls the kit alone may not be linked to the core, whose place the loader then learns from nobody
  # else. Distributions have one folder for all, and want no such path.
  if(NOT SQLDB_DEBIAN_PACKAGES AND NOT WIN32)
    set_target_properties(sqldb_kit PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
endif()

set(files_of_cmake ${CMAKE_INSTALL_LIBDIR}/cmake/sqldb)
install(EXPORT sqldbTargets NAMESPACE sqldb:: DESTINATION ${files_of_cmake} COMPONENT Development)
configure_package_config_file(cmake/sqldbConfig.cmake.in sqldbConfig.cmake
  INSTALL_DESTINATION ${files_of_cmake} NO_SET_AND_CHECK_MACRO)
# Before 1.0.0 a minor version may change the interface.
write_basic_package_version_file(sqldbConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sqldbConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/sqldbConfigVersion.cmake
  DESTINATION ${files_of_cmake} COMPONENT Development)
