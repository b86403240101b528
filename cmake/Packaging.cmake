# Run cpack in the build folder to make the Debian package and the portable tar archive in packages/ there. Both contain
# the same bundle. Only the Debian package adds the command, the menu entry and the man page.
if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux" OR NOT QELMO_WINDOW OR QELMO_SANITIZE)
    return()
endif()

include(cmake/PackageAddresses.cmake)
include(cmake/PackageVersion.cmake)
include(cmake/PackageTexts.cmake)
set(QELMO_PACKAGE qelmo-varnox-flasher)
set(QELMO_APP_ID io.qelmo.varnox-flasher)
set(sources "${PROJECT_SOURCE_DIR}/packaging")
set(made "${CMAKE_BINARY_DIR}/packaging")
file(MAKE_DIRECTORY "${made}/bin")

# ---- files that the build makes for the packages ----

function(qelmo_add_compressed file source)
    # Stores no name and no time, and ignores GZIP in the environment.
    add_custom_command(OUTPUT "${file}"
        COMMAND ${CMAKE_COMMAND} -E env --unset=GZIP sh -c "gzip -9 -n -c \"$1\" >\"$2\"" sh "${source}" "${file}"
        DEPENDS "${source}" VERBATIM)
endfunction()

configure_file("${sources}/${QELMO_PACKAGE}.1.in" "${made}/${QELMO_PACKAGE}.1" @ONLY)
qelmo_add_compressed("${made}/${QELMO_PACKAGE}.1.gz" "${made}/${QELMO_PACKAGE}.1")
configure_file("${sources}/changelog.in" "${made}/changelog" @ONLY)
qelmo_add_compressed("${made}/changelog.Debian.gz" "${made}/changelog")
set(packaged "${made}/${QELMO_PACKAGE}.1.gz" "${made}/changelog.Debian.gz")
foreach(size 48 128 256)
    qelmo_add_picture("${made}/icon-${size}.png" ${size})
    list(APPEND packaged "${made}/icon-${size}.png")
endforeach()
add_custom_target(packaging ALL DEPENDS ${packaged})

# ---- where the files go ----

# Installs the release first, so that a wrong one stops everything. Reads it when the package is made, because it may
# have been replaced since the build. The image of a replaced release is left out.
function(qelmo_install_bundle folder component)
    set(contents "${folder}/QELMO Varnox Flasher.app/Contents")
    cmake_parse_arguments(PARSE_ARGV 2 arg "EXCLUDE_FROM_ALL" "" "")
    set(how COMPONENT ${component})
    if(arg_EXCLUDE_FROM_ALL)
        list(APPEND how EXCLUDE_FROM_ALL)
    endif()
    install(CODE "
        set(resources \"${QELMO_BUNDLE_RESOURCES}\")
        set(destination \"${contents}/Resources\")
        set(wanted_image [==[${QELMO_CARRIED_IMAGE}]==])
        set(wanted_name [==[${QELMO_CARRIED_NAME}]==])
        set(wanted_version [==[${QELMO_CARRIED_VERSION}]==])
        include(\"${PROJECT_SOURCE_DIR}/cmake/InstallRelease.cmake\")" ${how})
    install(TARGETS QelmoFlasher RUNTIME DESTINATION "${contents}/MacOS" ${how})
    install(TARGETS QelmoWindow LIBRARY DESTINATION "${contents}/Frameworks" ${how})
    install(FILES "${QELMO_BUNDLE}/Contents/Info.plist" DESTINATION "${contents}" ${how})
    install(FILES "${QELMO_BUNDLE_RESOURCES}/AppIcon.icns" DESTINATION "${contents}/Resources" ${how})
endfunction()

set(library lib/${QELMO_PACKAGE})
qelmo_install_bundle(${library} debian)
file(CREATE_LINK "../${library}/QELMO Varnox Flasher.app/Contents/MacOS/QelmoFlasher" "${made}/bin/${QELMO_PACKAGE}"
     SYMBOLIC)
install(FILES "${made}/bin/${QELMO_PACKAGE}" DESTINATION bin COMPONENT debian)
install(PROGRAMS "${sources}/install-esptool" DESTINATION bin RENAME ${QELMO_PACKAGE}-install-esptool
        COMPONENT debian)
install(FILES "${sources}/${QELMO_APP_ID}.desktop" DESTINATION share/applications COMPONENT debian)
configure_file("${sources}/${QELMO_APP_ID}.metainfo.xml.in" "${made}/${QELMO_APP_ID}.metainfo.xml" @ONLY)
install(FILES "${made}/${QELMO_APP_ID}.metainfo.xml" DESTINATION share/metainfo COMPONENT debian)
install(FILES "${PROJECT_SOURCE_DIR}/assets/AppIcon.svg" DESTINATION share/icons/hicolor/scalable/apps
        RENAME ${QELMO_APP_ID}.svg COMPONENT debian)
foreach(size 48 128 256)
    install(FILES "${made}/icon-${size}.png" DESTINATION share/icons/hicolor/${size}x${size}/apps
            RENAME ${QELMO_APP_ID}.png COMPONENT debian)
endforeach()
# One man page for both commands.
file(CREATE_LINK ${QELMO_PACKAGE}.1.gz "${made}/${QELMO_PACKAGE}-install-esptool.1.gz" SYMBOLIC)
install(FILES "${made}/${QELMO_PACKAGE}.1.gz" "${made}/${QELMO_PACKAGE}-install-esptool.1.gz"
        DESTINATION share/man/man1 COMPONENT debian)
install(FILES "${sources}/70-${QELMO_PACKAGE}.rules" DESTINATION lib/udev/rules.d COMPONENT debian)
configure_file("${sources}/copyright" "${made}/copyright" @ONLY)
install(FILES "${made}/changelog.Debian.gz" "${made}/copyright" DESTINATION share/doc/${QELMO_PACKAGE}
        COMPONENT debian)
install(FILES "${QELMO_BUNDLE_RESOURCES}/TROUBLESHOOTING.txt" DESTINATION share/doc/${QELMO_PACKAGE} COMPONENT debian)
install(FILES "${sources}/lintian-overrides" DESTINATION share/lintian/overrides RENAME ${QELMO_PACKAGE}
        COMPONENT debian)

qelmo_install_bundle(. portable EXCLUDE_FROM_ALL)
configure_file("${sources}/README.txt" "${made}/README.txt" @ONLY)
install(FILES "${made}/README.txt" "${made}/copyright" "${sources}/70-${QELMO_PACKAGE}.rules"
        "${QELMO_BUNDLE_RESOURCES}/TROUBLESHOOTING.txt" DESTINATION . COMPONENT portable EXCLUDE_FROM_ALL)
install(PROGRAMS "${sources}/install-esptool" DESTINATION . COMPONENT portable EXCLUDE_FROM_ALL)

# ---- the packages ----

set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/cmake/PackagingOfGenerator.cmake")
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/PackagingOfFolders.cmake")
list(APPEND CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/PackagingOfTar.cmake")
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/packages")
set(CPACK_PACKAGE_NAME ${QELMO_PACKAGE})
set(CPACK_PACKAGE_VERSION ${QELMO_PACKAGE_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${QELMO_PACKAGE_SUMMARY}")
set(CPACK_PACKAGE_HOMEPAGE_URL "${QELMO_HOMEPAGE}")
set(CPACK_PACKAGE_VENDOR "QELMO")
set(CPACK_PACKAGE_CONTACT "${QELMO_MAINTAINER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_SOURCE_GENERATOR "")
# The name of a release may contain characters that have a meaning for CMake.
set(CPACK_VERBATIM_VARIABLES ON)

configure_file("${sources}/description.in" "${made}/description" @ONLY)
file(READ "${made}/description" CPACK_DEBIAN_PACKAGE_DESCRIPTION)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# SHLIBDEPS finds the linked libraries. These are loaded by name at run time, or run as another program.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "qt6-image-formats-plugins, python3, python3-serial, python3-intelhex")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fonts-dejavu-core, qt6-wayland, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "python3-pip, python3-setuptools")
set(CPACK_QELMO_PROCESSOR "${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_QELMO_SOURCE_DATE_EPOCH "${QELMO_SOURCE_DATE_EPOCH}")
include(CPack)
