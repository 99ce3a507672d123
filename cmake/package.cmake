# What cpack makes: an archive of the sources, and Debian packages with SQLDB_DEBIAN_PACKAGES.
set(CPACK_PACKAGE_VENDOR "The sqldb authors")
set(CPACK_PACKAGE_CONTACT "sqldb developers <sqldb@example.org>")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)

set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME sqldb-${PROJECT_VERSION})
# Regular expressions for whole paths, which start with this folder's.
string(REGEX REPLACE "([][+.*()^$?|\\\\])" "\\\\\\1" here "${PROJECT_SOURCE_DIR}")
set(CPACK_SOURCE_IGNORE_FILES "^${here}/build/" "^${here}/\\\\.git(/|$)" "/__pycache__/")

set(CPACK_GENERATOR TGZ)
if(SQLDB_DEBIAN_PACKAGES)
  include(cmake/debian.cmake)
endif()
include(CPack)
