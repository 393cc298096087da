# The same sources make the same file, wherever they lie: source paths, in log entries too, begin at the top folder.
function(corvane_make_reproducible target)
  target_compile_options(${target} PRIVATE
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
  set_target_properties(${target} PROPERTIES BUILD_RPATH_USE_ORIGIN ON)
endfunction()
