# The release inside the bundle: the sample, or the one that these three name.
#   cmake -DQELMO_RELEASE_IMAGE=merged.bin -DQELMO_RELEASE_VERSION=1.2.3 -DQELMO_RELEASE_NAME=Varnox
# FILEPATH, so that a relative path is one from where cmake was called.
set(QELMO_RELEASE_IMAGE "" CACHE FILEPATH "Merged image of the release to embed (empty: the sample)")
set(QELMO_RELEASE_VERSION "" CACHE STRING "Version of the release to embed")
set(QELMO_RELEASE_NAME "" CACHE STRING "Name of the release to embed")
set(QELMO_PACK_RELEASE "" CACHE FILEPATH "A pack-release that runs on this machine (for cross builds)")

set(given "")
set(missing "")
foreach(variable QELMO_RELEASE_IMAGE QELMO_RELEASE_VERSION QELMO_RELEASE_NAME)
    if("${${variable}}" STREQUAL "")
        list(APPEND missing ${variable})
    else()
        list(APPEND given ${variable})
    endif()
endforeach()
if(given AND missing)
    list(JOIN missing " and " missing)
    message(FATAL_ERROR "A release needs its image, its version and its name: ${missing} missing.")
endif()

set(manifest "${QELMO_BUNDLE_RESOURCES}/qelmo-varnox-flash-manifest.json")
if(given)
    if(NOT EXISTS "${QELMO_RELEASE_IMAGE}" OR IS_DIRECTORY "${QELMO_RELEASE_IMAGE}")
        message(FATAL_ERROR "QELMO_RELEASE_IMAGE: there is no file ${QELMO_RELEASE_IMAGE}")
    endif()
    if(QELMO_TESTS)
        message(NOTICE "The tests expect the sample release: run them in a build without QELMO_RELEASE_IMAGE.")
    endif()
    set(image "${QELMO_RELEASE_IMAGE}")
    set(words --name "${QELMO_RELEASE_NAME}" --version "${QELMO_RELEASE_VERSION}")
else()
    # Its words make plain that it is a sample.
    set(image "${CMAKE_BINARY_DIR}/sample/sample-firmware.bin")
    set(words --name "Sample, not firmware" --version 0.0.0-sample --confirmation "FLASH SAMPLE (NOT FIRMWARE)")
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/sample")
    add_custom_command(OUTPUT "${image}"
        COMMAND "${PROJECT_SOURCE_DIR}/tools/make-sample-image" "${image}"
        DEPENDS "${PROJECT_SOURCE_DIR}/tools/make-sample-image" "${PROJECT_SOURCE_DIR}/tools/esp_image.py"
                "${PROJECT_SOURCE_DIR}/tools/whole_file.py"
        COMMENT "Writing the sample image" VERBATIM)
endif()

set(packer pack-release)
if(QELMO_PACK_RELEASE)
    set(packer "${QELMO_PACK_RELEASE}")
endif()
set(pack "${packer}" --bundle "${QELMO_BUNDLE}" --image "${image}" ${words})
# Twice, because a replaced release leaves its image for flashers that are at work: the second run replaces the
# new release by itself, and the image of whatever was embedded before is not shipped along.
add_custom_command(OUTPUT "${manifest}" COMMAND ${pack} COMMAND ${pack} > /dev/null
                   DEPENDS "${packer}" "${image}" COMMENT "Packing the release into the bundle" VERBATIM)
