# The shared library's dynamic symbol table holds the exported classes of
# Vantrel::Auth and nothing else: nothing of libcurl, PCRE2 or the standard
# library, no internal class or helper. Its SONAME carries the major version.
# Inputs: LIBRARY SONAME SOVERSION NM READELF HEADERS ("|"-separated paths).

cmake_minimum_required(VERSION 3.18)

if(NOT EXISTS "${LIBRARY}")
  message(FATAL_ERROR "${LIBRARY} is not built")
endif()

execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE dynamic RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT dynamic MATCHES "Library soname: \\[([^]]*)\\]")
  message(FATAL_ERROR "no SONAME in ${LIBRARY}")
endif()
set(soname ${CMAKE_MATCH_1})
if(NOT soname STREQUAL "libVantrelAuthEngine64.so.${SOVERSION}" OR NOT soname STREQUAL "${SONAME}")
  message(FATAL_ERROR "SONAME is ${soname}, expected libVantrelAuthEngine64.so.${SOVERSION}")
endif()

# The classes, structs and variables the public headers mark as exported.
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
list(REMOVE_DUPLICATES exported)
list(LENGTH exported exported_count)
if(exported_count EQUAL 0)
  message(FATAL_ERROR "no exported class found in the public headers")
endif()
string(REPLACE ";" "|" exported_alternatives "${exported}")

execute_process(COMMAND ${NM} -D --defined-only -C ${LIBRARY}
  OUTPUT_VARIABLE table RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()
# CMake lists don't split inside square brackets: take them out of the way.
string(REPLACE "[" "(lb)" listable "${table}")
string(REPLACE "]" "(rb)" listable "${listable}")
string(REPLACE ";" "\\;" listable "${listable}")
string(REPLACE "\n" ";" lines "${listable}")

# Prefixes the compiler puts in front of a class's own symbols.
set(kinds "(typeinfo for |typeinfo name for |vtable for |VTT for |construction vtable for |non-virtual thunk to |virtual thunk to |guard variable for )?")
set(allowed "^${kinds}Vantrel::Auth::(${exported_alternatives})(::|$| |<)")
# Symbols the linker defines in every shared object.
set(linker_symbols "^(_init|_fini|_edata|_end|__bss_start)$")

set(offenders "")
set(count 0)
foreach(line IN LISTS lines)
  if(line STREQUAL "")
    continue()
  endif()
  # "<address> <type> <name>"
  if(NOT line MATCHES "^[0-9a-fA-F]* *[A-Za-z] (.*)$")
    message(FATAL_ERROR "unexpected nm line: ${line}")
  endif()
  set(name "${CMAKE_MATCH_1}")
  if(name MATCHES "${linker_symbols}")
    continue()
  endif()
  math(EXPR count "${count} + 1")
  if(NOT name MATCHES "${allowed}")
    list(APPEND offenders "${name}")
  endif()
endforeach()

if(offenders)
  list(LENGTH offenders offender_count)
  string(REPLACE ";" "\n  " listing "${offenders}")
  string(REPLACE "(lb)" "[" listing "${listing}")
  string(REPLACE "(rb)" "]" listing "${listing}")
  message(FATAL_ERROR "${offender_count} symbol(s) outside the exported classes "
                      "(${exported}):\n  ${listing}")
endif()

# The table is not empty for want of an export macro: the entry points are there.
foreach(required
    "Vantrel::Auth::AuthEngine::GlobalInit()"
    "Vantrel::Auth::AuthEngine::GetResultStr(Vantrel::Auth::AuthResult, char*, unsigned long*) const"
    "Vantrel::Auth::AuthEngineConfig::SetLoggerCallback(void (*)(Vantrel::Auth::VantrelAuthLogLevel, char const*))"
    "Vantrel::Auth::StrList::Append(Vantrel::Auth::StrList*, char const*)")
  string(FIND "${table}" "${required}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "not exported: ${required}")
  endif()
endforeach()

message(STATUS "${count} exported symbols, all of: ${exported}; SONAME ${soname}")
