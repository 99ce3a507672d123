# What an installation holds. It may be moved as a whole: nothing in it knows where it was installed.
include(CMakePackageConfigHelpers)

foreach(folder IN ITEMS BINDIR LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    message(FATAL_ERROR "CMAKE_INSTALL_${folder} is to be relative to the installation, not ${CMAKE_INSTALL_${folder}}.")
  endif()
endforeach()

install(TARGETS sqldb sqldb_kit EXPORT sqldbTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set_target_properties(sqldb_kit PROPERTIES EXPORT_NAME kit)
install(DIRECTORY include/sqldb kit/include/sqldb DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)

set(files_of_cmake ${CMAKE_INSTALL_LIBDIR}/cmake/sqldb)
install(EXPORT sqldbTargets NAMESPACE sqldb:: DESTINATION ${files_of_cmake} COMPONENT Development)
configure_package_config_file(cmake/sqldbConfig.cmake.in sqldbConfig.cmake
  INSTALL_DESTINATION ${files_of_cmake} NO_SET_AND_CHECK_MACRO)
# Before 1.0.0 a minor version may change the interface.
write_basic_package_version_file(sqldbConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sqldbConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/sqldbConfigVersion.cmake
  DESTINATION ${files_of_cmake} COMPONENT Development)

file(RELATIVE_PATH SQLDB_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" SQLDB_PREFIX_FROM_PC ${SQLDB_PREFIX_FROM_PC})
configure_file(cmake/sqldb.pc.in sqldb.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/sqldb.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
