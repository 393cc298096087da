# What is installed, in two components: Runtime for programs that run, Development for programs that are built.
set(runtime RUNTIME COMPONENT Runtime LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneFile)

set_target_properties(CorvaneFile PROPERTIES INSTALL_RPATH "$ORIGIN")  # finds the platform beside it in any prefix
install(FILES
  Corvane/Common/libFile/Corvane/File/ChunkFileLayout.h
  Corvane/Common/libFile/Corvane/File/DataChunkFileAppender.h
  Corvane/Common/libFile/Corvane/File/DataChunkFileReader.h
  Corvane/Common/libFile/Corvane/File/DataChunkFileScanner.h
  Corvane/Common/libFile/Corvane/File/ExtendedAttributes.h
  Corvane/Common/libFile/Corvane/File/WriteChunkFileDurably.h
  Corvane/Common/libFile/Corvane/File/XattrNames.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Corvane/File COMPONENT Development)

# A host's own platform is installed by the host, or not at all. No package files can be made then: they would name a
# target that this project does not export, which CMake refuses when it generates.
if(NOT TARGET CorvanePlatform OR NOT CORVANE_FILE_PLATFORM STREQUAL "Corvane::Platform")
  install(TARGETS CorvaneFile ${runtime})
  return()
endif()

install(TARGETS CorvaneFile CorvanePlatform EXPORT CorvaneFile ${runtime})
foreach(header Corvane/Pellin/DataChunk.h Corvane/Time/TimePoint.h
               tarn/cv/logging/Logger.h tarn/cv/logging/LoggingManager.h)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES platform/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT Development)
endforeach()

# find_package(CorvaneFile 1) gives Corvane::File. Nothing else has to be found, so the exported targets are all of it.
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CorvaneFileConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT CorvaneFile NAMESPACE Corvane:: FILE CorvaneFileConfig.cmake
        DESTINATION ${package_dir} COMPONENT Development)
install(FILES ${PROJECT_BINARY_DIR}/CorvaneFileConfigVersion.cmake DESTINATION ${package_dir} COMPONENT Development)

# pkg-config corvane-file: every path is relative to the file, so that the installed tree can be moved.
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
file(RELATIVE_PATH pc_to_include ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(cmake/corvane-file.pc.in ${PROJECT_BINARY_DIR}/corvane-file.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/corvane-file.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

if(CORVANE_FILE_PACKAGES)
  include(cmake/Packages.cmake)
endif()
