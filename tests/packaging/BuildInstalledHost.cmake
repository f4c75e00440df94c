# Installs into a scratch prefix; every header compiles alone, and host/ builds and runs through
# find_package and pkg-config, with poison/ first on the path so that reaching curl.h or pcre2.h fails.
# Inputs: BUILD_DIR WORK_DIR HOST_SOURCE POISON_INCLUDE CXX PKG_CONFIG GENERATOR.
cmake_minimum_required(VERSION 3.18)

include(${CMAKE_CURRENT_LIST_DIR}/Run.cmake)

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
file(GLOB_RECURSE headers RELATIVE ${prefix} ${prefix}/include/*)
if(NOT "include/VantrelAuthEngine.h" IN_LIST headers)
  message(FATAL_ERROR "umbrella header not installed; got: ${headers}")
endif()
foreach(header IN LISTS headers)
  run(${CXX} -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I${POISON_INCLUDE}
      -I${prefix}/include -x c++ ${prefix}/${header})
endforeach()

run(${CMAKE_COMMAND} -S ${HOST_SOURCE} -B ${WORK_DIR}/host-cmake -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_PREFIX_PATH=${prefix} -DVANTREL_POISON_INCLUDE=${POISON_INCLUDE})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/host-cmake)
run(${WORK_DIR}/host-cmake/host)

# pkg-config: its flags, and nothing else but the standard library.
file(GLOB_RECURSE pc_file ${prefix}/*/VantrelAuthEngine64.pc)
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} PKG_CONFIG_LIBDIR=${pc_dir}
    ${PKG_CONFIG} --cflags --libs VantrelAuthEngine64)
string(STRIP "${run_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
if(NOT flags MATCHES "-I${prefix}" OR NOT flags MATCHES "-L([^;]*)")
  message(FATAL_ERROR "pkg-config does not point into the installed tree: ${flags}")
endif()
run(${CXX} -std=c++17 -Wall -Wextra -Werror -I${POISON_INCLUDE} -I${HOST_SOURCE} ${HOST_SOURCE}/main.cc ${flags}
    -Wl,-rpath,${CMAKE_MATCH_1} -o ${WORK_DIR}/host-pkgconfig)
run(${WORK_DIR}/host-pkgconfig)
