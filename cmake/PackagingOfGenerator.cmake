# cpack reads this once for each package.
if(CPACK_GENERATOR STREQUAL "DEB")
    set(component debian)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
else()
    set(component portable)
    set(CPACK_PACKAGE_FILE_NAME
        "${CPACK_PACKAGE_NAME}-${CPACK_PACKAGE_VERSION}-linux-${CPACK_QELMO_PROCESSOR}")
endif()
list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build)
list(GET CPACK_INSTALL_CMAKE_PROJECTS 1 project)
set(CPACK_INSTALL_CMAKE_PROJECTS "${build};${project};${component};/")

# Packages carry the time of the commit, so that the same commit gives the same packages.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "" AND NOT CPACK_QELMO_SOURCE_DATE_EPOCH STREQUAL "")
    set(ENV{SOURCE_DATE_EPOCH} "${CPACK_QELMO_SOURCE_DATE_EPOCH}")
endif()
