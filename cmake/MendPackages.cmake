# Mends faults of packages that CPack makes. Their maintainer scripts repeat what the trigger does. Their debug symbols
# are executable, have checksums of the wrong paths, and lack a folder in /usr/share/doc.
set(folder ${CPACK_TEMPORARY_DIRECTORY}/unpacked)
foreach(package ${CPACK_PACKAGE_FILES})
  if(package MATCHES "/(libcorvanefile[0-9]+|corvane-file-tools)(-dbgsym)?_[^/]*$")
    set(name ${CMAKE_MATCH_1})
    file(REMOVE_RECURSE ${folder})
    execute_process(COMMAND dpkg-deb -R ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${folder}/DEBIAN/postinst ${folder}/DEBIAN/postrm)
    if(CMAKE_MATCH_2)
      file(MAKE_DIRECTORY ${folder}/usr/share/doc)
      file(CREATE_LINK ${name} ${folder}/usr/share/doc/${name}-dbgsym SYMBOLIC)
    endif()
    execute_process(WORKING_DIRECTORY ${folder} COMMAND_ERROR_IS_FATAL ANY COMMAND sh -c
      "find usr -type f ! -path 'usr/bin/*' -exec chmod a-x {} + && find usr -type f | LC_ALL=C sort | xargs md5sum >DEBIAN/md5sums")
    execute_process(COMMAND dpkg-deb --root-owner-group -b ${folder} ${package} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
