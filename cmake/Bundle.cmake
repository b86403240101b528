# The application is a bundle folder with the same layout on every system. All targets put their results into it.
set(QELMO_BUNDLE "${CMAKE_BINARY_DIR}/QELMO Varnox Flasher.app")
set(QELMO_BUNDLE_RESOURCES "${QELMO_BUNDLE}/Contents/Resources")
file(MAKE_DIRECTORY "${QELMO_BUNDLE_RESOURCES}")

# qelmo_add_picture(FILE SIZE): the application's icon as a square PNG of SIZE pixels.
find_program(RSVG_CONVERT rsvg-convert REQUIRED)
set(QELMO_ICON_DRAWINGS --small "${PROJECT_SOURCE_DIR}/assets/AppIcon-small.svg"
                        "${PROJECT_SOURCE_DIR}/assets/AppIcon.svg")
set(QELMO_ICON_DEPENDS "${PROJECT_SOURCE_DIR}/tools/make-icns" "${PROJECT_SOURCE_DIR}/tools/whole_file.py"
                       "${PROJECT_SOURCE_DIR}/assets/AppIcon.svg"
                       "${PROJECT_SOURCE_DIR}/assets/AppIcon-small.svg")
function(qelmo_add_picture file size)
    add_custom_command(OUTPUT "${file}"
        COMMAND "${PROJECT_SOURCE_DIR}/tools/make-icns" --png ${size} ${QELMO_ICON_DRAWINGS} "${file}"
        DEPENDS ${QELMO_ICON_DEPENDS} VERBATIM)
endfunction()
