# cpack runs this before it makes each package. All users may enter the folders in it, whatever the umask of the builder
# is.
execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -type d -exec chmod 755 {} +
                COMMAND_ERROR_IS_FATAL ANY)
