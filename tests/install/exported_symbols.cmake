# The library exports its interface and nothing else: a name that slips out becomes something that users may rely on, and
# that another library may be confused with.
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
  set(known)
  if(name MATCHES "^(vtable|VTT|typeinfo|typeinfo name) for (.*)$")
    set(name "${CMAKE_MATCH_2}")
    if(name IN_LIST classes OR name MATCHES "^boost::")
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
