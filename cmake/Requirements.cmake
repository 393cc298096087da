# Stops unless all variables after `package` are true, and names what is missing and the Debian package that has it.
function(corvane_require what package)
  foreach(variable ${ARGN})
    if(NOT ${variable})
      message(FATAL_ERROR "${what} is missing. On Debian: apt-get install ${package}")
    endif()
  endforeach()
endfunction()

function(corvane_require_compiler name oldest)
  if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS oldest)
    message(FATAL_ERROR "Building the library needs GCC 12, Clang 15 or newer. This is ${name} "
                        "${CMAKE_CXX_COMPILER_VERSION}. Choose another with -DCMAKE_CXX_COMPILER=...")
  endif()
endfunction()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  corvane_require_compiler(GCC 12)
elseif(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  corvane_require_compiler(Clang 15)
endif()

if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  message(FATAL_ERROR "BUILD_SHARED_LIBS=OFF is not supported: the library is always shared, because its platform's "
                      "loggers must exist once in a process. Leave BUILD_SHARED_LIBS unset or ON.")
endif()
