# cpack runs this after it has made each package. The tar of cpack depends on the order of the files on the disk and on
# the user id of the builder. This one does not.
if(CPACK_GENERATOR STREQUAL "TGZ")
    get_filename_component(parent "${CPACK_TEMPORARY_DIRECTORY}" DIRECTORY)
    get_filename_component(folder "${CPACK_TEMPORARY_DIRECTORY}" NAME)
    if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
        set(times)
    else()
        set(times "--mtime=@$ENV{SOURCE_DATE_EPOCH}")
    endif()
    execute_process(
        COMMAND tar --format=gnu --sort=name --owner=root:0 --group=root:0 ${times} -C "${parent}" -c "${folder}"
        COMMAND gzip -9 -n
        OUTPUT_FILE "${CPACK_PACKAGE_FILES}" COMMAND_ERROR_IS_FATAL ANY)
endif()
