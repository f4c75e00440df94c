# Compile and link options, given to each target of this project by name rather
# than to a directory, so that a project that adds this one with
# add_subdirectory keeps its own flags and ours don't leak into it.
#
#   vantrel_target_options(<target>)          warnings and instrumentation
#   vantrel_target_options(<target> LIBRARY)  the same, plus -Wshadow

function(vantrel_target_options target)
  cmake_parse_arguments(arg "LIBRARY" "" "" ${ARGN})
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  # The library's own code also keeps every name from hiding another: a
  # parameter named like a member is how a constructor quietly assigns a field
  # to itself.
  if(arg_LIBRARY)
    target_compile_options(${target} PRIVATE -Wshadow)
  endif()
  if(VANTREL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  # Instrumentation has to cover every object of a program, so each target
  # takes it, not only the library.
  if(VANTREL_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
  if(VANTREL_TSAN)
    target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=thread)
  endif()
endfunction()
