# The bill of materials: the dependencies of the application, in the versions that this build found, and the release
# that it carries.
set(QELMO_SBOM "${CMAKE_BINARY_DIR}/QELMO-Varnox-Flasher.cdx.json")

find_package(nlohmann_json 3.11 REQUIRED)
set(components "nlohmann-json=${nlohmann_json_VERSION}")
if(QELMO_WINDOW)
    list(APPEND components "qt=${Qt6_VERSION}" qt-image-formats=)
endif()
if(APPLE)
    list(APPEND components "macos=${CMAKE_OSX_DEPLOYMENT_TARGET}")
else()
    find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto)
    set(gcc "")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        set(gcc "${CMAKE_CXX_COMPILER_VERSION}")
    endif()
    execute_process(COMMAND getconf GNU_LIBC_VERSION OUTPUT_VARIABLE glibc OUTPUT_STRIP_TRAILING_WHITESPACE)
    string(REPLACE "glibc " "" glibc "${glibc}")
    list(APPEND components "openssl=${OPENSSL_VERSION}" "gcc-runtime=${gcc}" "glibc=${glibc}")
endif()
set(writer "${PROJECT_SOURCE_DIR}/tools/write-sbom")
add_custom_command(OUTPUT "${QELMO_SBOM}"
    COMMAND "${writer}" --version "${PROJECT_VERSION}" --time "${QELMO_SOURCE_DATE_EPOCH}"
            "--release-name=${QELMO_CARRIED_NAME}" "--release-version=${QELMO_CARRIED_VERSION}"
            "--release-image=${QELMO_CARRIED_IMAGE}" "${QELMO_SBOM}" ${components}
    DEPENDS bundle "${writer}" "${PROJECT_SOURCE_DIR}/tools/whole_file.py" "${QELMO_CARRIED_IMAGE}"
    COMMENT "Writing the bill of materials" VERBATIM)
add_custom_target(sbom ALL DEPENDS "${QELMO_SBOM}")
