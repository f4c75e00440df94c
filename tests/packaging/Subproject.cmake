# Configures tests/packaging/parent, which adds the library with add_subdirectory,
# with GoogleTest and Google Benchmark made unfindable: the library's configure
# must not need them, and must bring in nothing but the library itself.
# Inputs: SOURCE_DIR WORK_DIR PARENT_SOURCE GENERATOR.
cmake_minimum_required(VERSION 3.21)

file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} -S ${PARENT_SOURCE} -B ${WORK_DIR} -G ${GENERATOR}
    -DVANTREL_SOURCE_DIR=${SOURCE_DIR} -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
    -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON --no-warn-unused-cli
  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "configure as a subproject failed:\n${out}\n${err}")
endif()
if(err MATCHES "CMake Warning")
  message(FATAL_ERROR "configure as a subproject warned:\n${err}")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR} --target help
  OUTPUT_VARIABLE targets RESULT_VARIABLE result)
if(NOT targets MATCHES "VantrelAuthEngine64")
  message(FATAL_ERROR "the library is not among the targets:\n${targets}")
endif()
foreach(unwanted test_ vantrel_bench vantrel-emulator signin vantrel_auth_static)
  if(targets MATCHES "${unwanted}")
    message(FATAL_ERROR "a subproject build makes '${unwanted}':\n${targets}")
  endif()
endforeach()
