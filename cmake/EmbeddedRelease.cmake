# Packs the release of cmake/ReleaseSettings.cmake into the bundle.
set(QELMO_PACK_RELEASE "" CACHE FILEPATH "A pack-release that runs on this machine (for cross builds)")

set(manifest "${QELMO_BUNDLE_RESOURCES}/qelmo-varnox-flash-manifest.json")
set(words --name "${QELMO_CARRIED_NAME}" --version "${QELMO_CARRIED_VERSION}")
if(QELMO_CARRIES_SAMPLE)
    list(APPEND words --confirmation "FLASH SAMPLE (NOT FIRMWARE)")
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/sample")
    add_custom_command(OUTPUT "${QELMO_CARRIED_IMAGE}"
        COMMAND "${PROJECT_SOURCE_DIR}/tools/make-sample-image" "${QELMO_CARRIED_IMAGE}"
        DEPENDS "${PROJECT_SOURCE_DIR}/tools/make-sample-image" "${PROJECT_SOURCE_DIR}/tools/esp_image.py"
                "${PROJECT_SOURCE_DIR}/tools/whole_file.py"
        COMMENT "Writing the sample image" VERBATIM)
endif()

set(packer pack-release)
if(QELMO_PACK_RELEASE)
    set(packer "${QELMO_PACK_RELEASE}")
endif()
set(pack "${packer}" --bundle "${QELMO_BUNDLE}" --image "${QELMO_CARRIED_IMAGE}" ${words} ${QELMO_RELEASE_OPTIONS})
# Runs twice: the first run keeps the image of the replaced release for flashers that are running. The second run
# replaces the new release by itself, which removes the image of the release that was embedded before.
add_custom_command(OUTPUT "${manifest}" COMMAND ${pack} COMMAND ${pack} > /dev/null
                   DEPENDS "${packer}" "${QELMO_CARRIED_IMAGE}" COMMENT "Packing the release into the bundle" VERBATIM)
