# Installs the build tree into a scratch prefix, then builds and runs the host
# of host/ against it twice: through find_package and through pkg-config.
# Inputs: BUILD_DIR WORK_DIR HOST_SOURCE POISON_INCLUDE CXX PKG_CONFIG GENERATOR.

cmake_minimum_required(VERSION 3.18)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "failed (${result}): ${command}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

file(GLOB_RECURSE installed_headers RELATIVE ${prefix} ${prefix}/include/*)
if(NOT "include/VantrelAuthEngine64/VantrelAuthEngine.h" IN_LIST installed_headers)
  message(FATAL_ERROR "umbrella header not installed; got: ${installed_headers}")
endif()

# Every installed header stands on its own, with the standard library alone.
foreach(header IN LISTS installed_headers)
  run(${CXX} -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I${POISON_INCLUDE}
      -I${prefix}/include/VantrelAuthEngine64 -x c++ ${prefix}/${header})
endforeach()

# 1. find_package and the imported target.
run(${CMAKE_COMMAND} -S ${HOST_SOURCE} -B ${WORK_DIR}/host-cmake -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix}
    -DVANTREL_POISON_INCLUDE=${POISON_INCLUDE})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/host-cmake)
run(${WORK_DIR}/host-cmake/host)
message(STATUS "find_package host: ${run_output}")

# 2. pkg-config: the flags it gives, and nothing else but the standard library.
file(GLOB_RECURSE pc_files ${prefix}/*/VantrelAuthEngine64.pc)
list(LENGTH pc_files pc_count)
if(NOT pc_count EQUAL 1)
  message(FATAL_ERROR "expected one VantrelAuthEngine64.pc under ${prefix}, found: ${pc_files}")
endif()
get_filename_component(pc_dir ${pc_files} DIRECTORY)
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} PKG_CONFIG_LIBDIR=${pc_dir}
    ${PKG_CONFIG} --cflags --libs VantrelAuthEngine64)
string(STRIP "${run_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
if(NOT flags MATCHES "-I${prefix}")
  message(FATAL_ERROR "pkg-config does not point into the installed tree: ${flags}")
endif()
set(libdir "")
foreach(flag IN LISTS flags)
  if(flag MATCHES "^-L(.*)")
    set(libdir ${CMAKE_MATCH_1})
  endif()
endforeach()
run(${CXX} -std=c++17 -Wall -Wextra -Werror -I${POISON_INCLUDE} ${HOST_SOURCE}/main.cc ${flags}
    -Wl,-rpath,${libdir} -o ${WORK_DIR}/host-pkgconfig)
run(${WORK_DIR}/host-pkgconfig)
message(STATUS "pkg-config host: ${run_output}")
