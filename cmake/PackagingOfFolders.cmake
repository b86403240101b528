# cpack runs this before it makes each package: all users may enter its folders, whatever the umask of the builder.
execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -type d -exec chmod 755 {} +
                COMMAND_ERROR_IS_FATAL ANY)
