# cpack runs this when it has made packages. The archive around a Debian package stores file modes from the folder of
# cpack, and these depend on the umask of the builder.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(package MATCHES "\\.deb$")
        execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/../tools/settle-deb" "${package}"
                        COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
