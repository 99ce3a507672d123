# The Debian packages libsqldbN and libsqldb-kitN, with a library each, and libsqldb-dev, with all that a build needs.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime KitRuntime Development)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Below the first revision that Debian would give it.
set(CPACK_DEBIAN_PACKAGE_RELEASE 0sqldb1)
set(version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(runtime libsqldb${PROJECT_VERSION_MAJOR})
set(kit_runtime libsqldb-kit${PROJECT_VERSION_MAJOR})
set(idea "Tables with typed columns, statement objects instead of hand-written SQL, and
rows delivered straight into the application's own structs.")
# Empty, since CPack would put it above what each package says of itself.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "object layer over SQLite 3 database files (shared library)
${idea}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "object layer over SQLite 3 database files (development files)
${idea}

This package holds the headers of the library and of its kit, and what CMake
and pkg-config need to find them.")
set(CPACK_COMPONENT_KITRUNTIME_DESCRIPTION "kit for SQLite 3 database files (shared library)
Any SQL with typed parameters and rows, tables of structs and transactions, on
compiled statements that are kept and whose values are bound.")

set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_KITRUNTIME_PACKAGE_NAME ${kit_runtime})
# No installed package says whose library the kit needs beside those of the system.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
set(CPACK_DEBIAN_KITRUNTIME_PACKAGE_DEPENDS "${runtime} (= ${version})")
# A trigger lets dpkg run ldconfig once for all packages. CPack writes scripts that call it, unless it believes that there
# are others: these do not exist.
set(folder ${CMAKE_CURRENT_BINARY_DIR}/debian)
file(WRITE ${folder}/triggers "activate-noawait ldconfig\n")
foreach(library IN ITEMS RUNTIME KITRUNTIME)
  set(CPACK_DEBIAN_${library}_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_${library}_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_${library}_PACKAGE_CONTROL_EXTRA ${folder}/triggers ${folder}/none/postinst ${folder}/none/postrm)
endforeach()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libsqldb-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime} (= ${version}), ${kit_runtime} (= ${version}), lib${SQLDB_ENGINE}-dev, libboost-dev")

# What Debian wants of every package. The time is now, or that of SOURCE_DATE_EPOCH.
file(READ ${PROJECT_SOURCE_DIR}/LICENSE license)
string(STRIP "${license}" license)
string(REGEX MATCH "Copyright \\(c\\) ([^\n]+)" holder "${license}")
set(holder ${CMAKE_MATCH_1})
string(REGEX REPLACE "^.*Copyright [^\n]+\n\n" "" license "${license}")
string(REGEX REPLACE "\n\n" "\n.\n" license "${license}")
string(REGEX REPLACE "\n" "\n " license "${license}")
file(CONFIGURE OUTPUT debian/copyright @ONLY CONTENT
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: sqldb
Upstream-Contact: @CPACK_PACKAGE_CONTACT@

Files: *
Copyright: @holder@
License: Expat

License: Expat
 @license@
")
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(CONFIGURE OUTPUT debian/changelog.Debian @ONLY CONTENT
"sqldb (@version@) unstable; urgency=medium

  * New upstream version.

 -- @CPACK_PACKAGE_CONTACT@  @now@
")
find_program(SQLDB_GZIP gzip REQUIRED)
mark_as_advanced(SQLDB_GZIP)
# Without a name and a time, so that the same sources give the same package.
execute_process(COMMAND ${SQLDB_GZIP} -9nc ${folder}/changelog.Debian
  OUTPUT_FILE ${folder}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${SQLDB_GZIP} -9nc ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  OUTPUT_FILE ${folder}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  install(FILES ${folder}/copyright ${folder}/changelog.Debian.gz ${folder}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME} COMPONENT ${component})
endforeach()
