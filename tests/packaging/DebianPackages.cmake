# Builds the Debian packages from the build tree, unpacks them into a scratch
# root with dpkg -x, and builds the README's minimal host against that root,
# through find_package and through pkg-config, then runs it and the packaged
# vantrel-signin. Inputs: BUILD_DIR WORK_DIR README CPACK CXX PKG_CONFIG GENERATOR.
cmake_minimum_required(VERSION 3.21)

include(${CMAKE_CURRENT_LIST_DIR}/Run.cmake)

# The text of the first fenced block of `language` after `heading` in the README.
function(readme_block heading language result)
  file(READ ${README} text)
  string(FIND "${text}" "${heading}" at)
  if(at LESS 0)
    message(FATAL_ERROR "README has no '${heading}'")
  endif()
  string(SUBSTRING "${text}" ${at} -1 text)
  string(FIND "${text}" "```${language}\n" start)
  string(SUBSTRING "${text}" ${start} -1 text)
  string(LENGTH "```${language}\n" fence)
  string(SUBSTRING "${text}" ${fence} -1 text)
  string(FIND "${text}" "```" end)
  string(SUBSTRING "${text}" 0 ${end} text)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(expect_file path)
  if(NOT EXISTS ${root}/${path} AND NOT IS_SYMLINK ${root}/${path})
    message(FATAL_ERROR "the packages lack ${path}")
  endif()
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(root ${WORK_DIR}/root)
run(${CPACK} --config ${BUILD_DIR}/CPackConfig.cmake -B ${WORK_DIR}/dist)
file(GLOB debs ${WORK_DIR}/dist/*.deb)
list(LENGTH debs count)
if(NOT count EQUAL 3)
  message(FATAL_ERROR "expected three packages, got: ${debs}")
endif()

foreach(deb IN LISTS debs)
  run(dpkg-deb --field ${deb} Package Depends)
  string(APPEND fields "${run_output}")
  run(dpkg-deb -x ${deb} ${root})
endforeach()
# The run-time package's dependencies come from the library's own imports.
foreach(needed "Package: libvantrelauthengine64-1" "libcurl4" "libpcre2-8-0" "libssl3"
               "Package: libvantrelauthengine64-dev" "Package: vantrel-signin")
  string(FIND "${fields}" "${needed}" at)
  if(at LESS 0)
    message(FATAL_ERROR "'${needed}' missing from the control fields:\n${fields}")
  endif()
endforeach()

file(GLOB_RECURSE sonames LIST_DIRECTORIES false ${root}/usr/lib*/libVantrelAuthEngine64.so.1)
if(NOT sonames)
  message(FATAL_ERROR "no libVantrelAuthEngine64.so.1 under ${root}/usr")
endif()
list(GET sonames 0 soname)
get_filename_component(libdir ${soname} DIRECTORY)
file(RELATIVE_PATH libdir_in_root ${root} ${libdir})
foreach(path usr/include/VantrelAuthEngine.h usr/include/VantrelAuthEngine64/AuthEngine.h
             ${libdir_in_root}/libVantrelAuthEngine64.so
             ${libdir_in_root}/pkgconfig/VantrelAuthEngine64.pc
             ${libdir_in_root}/cmake/VantrelAuthEngine64/VantrelAuthEngine64Config.cmake
             usr/bin/vantrel-signin)
  expect_file(${path})
endforeach()

# The host exactly as the README shows it.
set(host ${WORK_DIR}/host)
readme_block("A minimal host, `main.cc`" cpp main_cc)
readme_block("With CMake (`find_package`" cmake cmake_lists)
file(WRITE ${host}/main.cc "${main_cc}")
file(WRITE ${host}/CMakeLists.txt "${cmake_lists}")

set(ENV{LD_LIBRARY_PATH} ${libdir})
run(${CMAKE_COMMAND} -S ${host} -B ${host}/build -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_PREFIX_PATH=${root}/usr -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF)
run(${CMAKE_COMMAND} --build ${host}/build)
run(${host}/build/host)

set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
set(ENV{PKG_CONFIG_LIBDIR} ${libdir}/pkgconfig)
run(${PKG_CONFIG} --cflags --libs VantrelAuthEngine64)
string(STRIP "${run_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${host}/main.cc ${flags} -o ${host}/host-pkgconfig)
run(${host}/host-pkgconfig)

run(${root}/usr/bin/vantrel-signin --help)
string(FIND "${run_output}" "Usage: signin" at)
if(at LESS 0)
  message(FATAL_ERROR "vantrel-signin --help printed: ${run_output}")
endif()
message(STATUS "packages, unpacked host and vantrel-signin: ok")
