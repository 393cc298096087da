# Adds the command-line tool as a program `name`. It reads chunk files of the platform of the target PLATFORM. GLUE is the
# source that defines the functions of chunkfile/Glue.h. Call it where the target Corvane::File exists.
set(CORVANE_FILE_TOOL_DIR ${CMAKE_CURRENT_LIST_DIR})
set(CORVANE_FILE_TOOL_SOURCES
  Attr
  ByteMap
  Cat
  Check
  CheckReport
  Commands
  Completion
  Copy
  CsvRows
  EqualTimes
  FileBytes
  Findings
  Import
  Html
  Info
  InfoReport
  Input
  Interrupts
  Json
  JsonDocument
  JsonGrammar
  JsonRow
  JsonRows
  List
  Output
  OutputName
  ParseNumber
  ParseTimes
  Parser
  PartWriter
  Plan
  Recover
  Reopening
  RowTimes
  Selection
  SoundFile
  Survey
  Tables
  Terminal
  TextStream
  Timeline
  Times
  Utf8
  View
  ViewCharts
  ViewFacts
  ViewPage
  ViewStyle
  ViewTime
  Walk)
list(TRANSFORM CORVANE_FILE_TOOL_SOURCES PREPEND ${CORVANE_FILE_TOOL_DIR}/chunkfile/)
list(TRANSFORM CORVANE_FILE_TOOL_SOURCES APPEND .cpp)

function(corvane_file_tool name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "PLATFORM;GLUE" "")
  find_package(CLI11 QUIET)
  if(NOT CLI11_FOUND)
    message(FATAL_ERROR "CLI11 is missing. On Debian: apt-get install libcli11-dev")
  endif()
  find_package(simdjson QUIET)
  if(NOT simdjson_FOUND)
    message(FATAL_ERROR "simdjson is missing. On Debian: apt-get install libsimdjson-dev")
  endif()
  add_library(${name}_parts STATIC ${CORVANE_FILE_TOOL_SOURCES} ${ARG_GLUE})
  # It runs once, and takes the compiler longer than all the others.
  set_source_files_properties(${CORVANE_FILE_TOOL_DIR}/chunkfile/Parser.cpp
    PROPERTIES COMPILE_OPTIONS $<IF:$<CONFIG:Debug>,-O0,-O1>)
  target_compile_features(${name}_parts PUBLIC cxx_std_20)
  target_include_directories(${name}_parts PUBLIC ${CORVANE_FILE_TOOL_DIR})
  get_target_property(version CorvaneFile VERSION)
  target_compile_definitions(${name}_parts PRIVATE CORVANE_FILE_VERSION="${version}")
  target_link_libraries(${name}_parts PUBLIC CLI11::CLI11 simdjson::simdjson)
  corvane_file_for_platform(${name}_parts ${ARG_PLATFORM})
  add_executable(${name} ${CORVANE_FILE_TOOL_DIR}/chunkfile/main.cpp)
  target_link_libraries(${name} PRIVATE ${name}_parts)
endfunction()

# Links Corvane::File, or its sources if Corvane::File is built for another platform.
function(corvane_file_for_platform target platform)
  get_target_property(links CorvaneFile LINK_LIBRARIES)
  if(platform IN_LIST links)
    target_link_libraries(${target} PUBLIC Corvane::File)
    return()
  endif()
  get_target_property(folder CorvaneFile SOURCE_DIR)
  get_target_property(sources CorvaneFile SOURCES)
  list(TRANSFORM sources PREPEND ${folder}/)
  target_sources(${target} PRIVATE ${sources})
  target_include_directories(${target} PUBLIC ${folder})
  target_link_libraries(${target} PUBLIC ${platform})
endfunction()
