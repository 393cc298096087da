# Adds the conformance kit as a program `name` of GoogleTests. It says whether the types of the target PLATFORM keep what
# the library relies on. GLUE is the source that defines the functions of Glue.h.
find_package(GTest REQUIRED)
find_package(Threads REQUIRED)
set(CORVANE_CONFORMANCE_DIR ${CMAKE_CURRENT_LIST_DIR})

function(corvane_conformance_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "PLATFORM;GLUE" "")
  add_executable(${name} ${CORVANE_CONFORMANCE_DIR}/Conformance.cpp ${ARG_GLUE})
  target_compile_features(${name} PRIVATE cxx_std_17)
  target_include_directories(${name} PRIVATE ${CORVANE_CONFORMANCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARG_PLATFORM} GTest::gtest_main Threads::Threads)
  add_test(NAME ${name} COMMAND ${name})
endfunction()
