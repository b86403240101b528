# Run by cpack before each package: the folders in it may be entered whatever the builder's umask is.
execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -type d -exec chmod 755 {} +
                COMMAND_ERROR_IS_FATAL ANY)
