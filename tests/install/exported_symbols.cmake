# The library exports its interface and nothing else: a name that slips out becomes something that users may rely on, and
# that another library may be confused with.
#
# The interface of the kit is what its HEADERS mark with SQLDB_EXPORT. That of the core, of which programs specialise
# templates, is the lists.
cmake_minimum_required(VERSION 3.22)
set(classes
  sqldb::BindingCallback
  sqldb::OffsetSpec
  sqldb::QueryCallback
  sqldb::SQLColumnBase
  "sqldb::SQLColumnClass<unsigned int, 4u, ColumnTraits<unsigned int> >"
  sqldb::SQLCursorBase
  sqldb::SQLDatabase
  sqldb::SQLDeleteClass
  sqldb::SQLEmptyTerm
  sqldb::SQLInsertClass
  sqldb::SQLReplaceClass
  sqldb::SQLSelectClass
  "sqldb::SQLStepCursor<unsigned int>"
  sqldb::SQLStepCursorBase
  sqldb::SQLTableClass
  sqldb::SQLTermBase
  sqldb::SQLUpdateClass
  sqldb::SQLValueBase
  AddColumnDefToQuery
  AddValueToQuery
  "ColumnTraits<unsigned int>"
  PresentBindingOpportunity
  PushColumn
  SQLInsertBindingCallback
  SelectCallback
  TableClassIs
  TableNameIs)
set(functions
  AddValueToUpdate
  LessSerial
  ThrowError
  ThrowIf
  sqldb::operator<<
  sqlite_decode_binary
  sqlite_encode_binary)
set(data
  sqldb::SQLCursorBase::sfCursorSerialNumber
  sqldb::SQLEmptyTerm::EmptyTerm
  sqldb::SQLValueBase::gLastNamedParameterSequence)

if(HEADERS)
  set(classes)
  set(functions)
  set(data)
  file(GLOB_RECURSE headers ${HEADERS}/*.h)
  foreach(header IN LISTS headers)
    file(READ ${header} text)
    string(REGEX REPLACE "//[^\n]*" "" text "${text}")
    string(REGEX MATCHALL "(class|struct) SQLDB_EXPORT [A-Za-z]+" marked "${text}")
    list(TRANSFORM marked REPLACE ".* " "")
    list(APPEND classes ${marked})
    string(REGEX MATCHALL "SQLDB_EXPORT [^;{}(]*[ *&](operator[^(]+|[A-Za-z0-9]+)\\(" marked "${text}")
    list(TRANSFORM marked REPLACE ".*[ *&](operator[^(]+|[A-Za-z0-9]+)\\($" "\\1")
    list(APPEND functions ${marked})
  endforeach()
  list(REMOVE_DUPLICATES classes)
  list(REMOVE_DUPLICATES functions)
endif()

execute_process(COMMAND ${NM} --dynamic --defined-only --demangle ${LIBRARY}
  RESULT_VARIABLE result OUTPUT_VARIABLE symbols ERROR_VARIABLE problem)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} ${LIBRARY}: ${result}\n${problem}")
endif()
string(REGEX MATCHALL "[^\n]+" symbols "${symbols}")

set(seen)
set(unexpected)
foreach(symbol IN LISTS symbols)
  string(REGEX MATCH "^[0-9a-f]* *([A-Za-z]) (.*)$" symbol "${symbol}")
  set(kind ${CMAKE_MATCH_1})
  set(name "${CMAKE_MATCH_2}")
  if(HEADERS)
    string(REGEX REPLACE "(^| for )sqldb::kit::(detail::)?" "\\1" name "${name}")
    # What the compiler says of a text that a function returns, and of what a specialisation is for.
    string(REPLACE "[abi:cxx11]" "" name "${name}")
    string(REGEX REPLACE "^([A-Za-z]+)<[^(]*>::" "\\1::" name "${name}")
  endif()
  set(known)
  if(name MATCHES "^(__bss_start|_edata|_end)$")
    continue()  # some linkers' own
  elseif(name MATCHES "^(vtable|VTT|typeinfo|typeinfo name) for (.*)$")
    set(name "${CMAKE_MATCH_2}")
    if(name IN_LIST classes OR name MATCHES "^(boost|std)::")
      set(known "${name}")
    endif()
  elseif(kind MATCHES "^[BDGRS]$")
    if(name IN_LIST data)
      set(known ${name})
    endif()
  elseif(kind MATCHES "^[VWu]$" AND
      name MATCHES "^(decltype\\(.*\\) )?([^(]*[ &*])?(std|boost|__gnu_cxx)::|^operator (new|delete)\\(.*void\\*\\)$")
    continue()  # what the compiler did not inline of the libraries' templates
  elseif(kind MATCHES "^[TW]$")
    foreach(scope IN LISTS classes)
      string(FIND "${name}" "${scope}::" at)
      if(at EQUAL 0)
        set(known "${scope}")
      endif()
    endforeach()
    foreach(function IN LISTS functions)
      string(FIND "${name}" "${function}(" at)
      if(at EQUAL 0)
        set(known "${function}")
      endif()
    endforeach()
  endif()
  if(known)
    list(APPEND seen "${known}")
  else()
    string(APPEND unexpected "\n  ${kind} ${name}")
  endif()
endforeach()

set(missing ${classes} ${functions} ${data})
if(seen)
  list(REMOVE_ITEM missing ${seen})
endif()
if(unexpected OR missing)
  message(FATAL_ERROR "exported though not expected:${unexpected}\nexpected but not exported: ${missing}")
endif()
