# The dynamic symbol table holds the exported classes of Vantrel::Auth and
# nothing else (nothing of libcurl, PCRE2 or the standard library, no internal
# helper), and the SONAME carries the major version.
# Inputs: LIBRARY SONAME SOVERSION NM READELF HEADERS ("|"-separated paths).
cmake_minimum_required(VERSION 3.18)

execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE dynamic RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT dynamic MATCHES "Library soname: \\[([^]]*)\\]")
  message(FATAL_ERROR "no SONAME in ${LIBRARY}")
endif()
if(NOT "${CMAKE_MATCH_1}|${SONAME}" STREQUAL "libVantrelAuthEngine64.so.${SOVERSION}|${SONAME}")
  message(FATAL_ERROR "SONAME is ${CMAKE_MATCH_1}, expected libVantrelAuthEngine64.so.${SOVERSION}")
endif()

# The classes and structs the public headers mark as exported.
string(REPLACE "|" ";" headers "${HEADERS}")
set(exported "")
foreach(header IN LISTS headers)
  file(READ ${header} text)
  string(REGEX MATCHALL "(class|struct) VANTREL_AUTH_EXPORT [A-Za-z_][A-Za-z0-9_]*" found "${text}")
  foreach(declaration IN LISTS found)
    string(REGEX REPLACE ".* " "" name "${declaration}")
    list(APPEND exported ${name})
  endforeach()
endforeach()
string(REPLACE ";" "|" classes "${exported}")

execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY} OUTPUT_VARIABLE table RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()
# CMake lists don't split inside square brackets: take them out of the way.
string(REPLACE "[" "(lb)" listable "${table}")
string(REPLACE "]" "(rb)" listable "${listable}")
string(REPLACE ";" "\\;" listable "${listable}")
string(REPLACE "\n" ";" lines "${listable}")

# A class's own symbols, with the prefixes the compiler puts in front; the linker's.
set(kinds "(typeinfo for |typeinfo name for |vtable for |VTT for |non-virtual thunk to |virtual thunk to )?")
set(allowed "^${kinds}Vantrel::Auth::(${classes})(::|$| |<)|^(_init|_fini|_edata|_end|__bss_start)$")
set(offenders "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-fA-F]* *[A-Za-z] (.*)$")  # "<address> <type> <name>"
    set(name "${CMAKE_MATCH_1}")
    if(NOT name MATCHES "${allowed}")
      list(APPEND offenders "${name}")
    endif()
  endif()
endforeach()
if(offenders OR NOT exported)
  string(REPLACE ";" "\n  " listing "${offenders}")
  message(FATAL_ERROR "symbols outside the exported classes (${exported}):\n  ${listing}")
endif()

string(FIND "${table}" "Vantrel::Auth::AuthEngine::GlobalInit()" at)  # not empty for want of the macro
if(at EQUAL -1)
  message(FATAL_ERROR "AuthEngine::GlobalInit is not exported")
endif()
