# Run by cpack after each package. Its own tar holds the files in the order of the file system and with the
# builder's number as owner; this one depends on neither.
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
