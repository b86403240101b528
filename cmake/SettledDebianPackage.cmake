# Run by cpack when packages are made. The archive around a Debian package tells the modes that its parts had in
# cpack's own folder, and with them the umask of whoever called it.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(package MATCHES "\\.deb$")
        execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/../tools/settle-deb" "${package}"
                        COMMAND_ERROR_IS_FATAL ANY)
    endif()
endforeach()
