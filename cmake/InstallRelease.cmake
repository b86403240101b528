# Installs the release of the bundle whose resource folder is ${resources}: the manifest and its image. The release must
# be the one that the build is configured for (${wanted_name}, ${wanted_version}, ${wanted_image}), because a build that
# failed or was forgotten leaves the previous release in the bundle.
set(manifest "${resources}/qelmo-varnox-flash-manifest.json")
if(NOT EXISTS "${manifest}")
    message(FATAL_ERROR "The bundle holds no release: build it first.")
endif()
if(NOT EXISTS "${wanted_image}")
    message(FATAL_ERROR "The image to pack is missing: ${wanted_image}. Restore it or configure another.")
endif()
file(READ "${manifest}" text)
string(JSON name GET "${text}" name)
string(JSON version GET "${text}" version)
string(JSON digest GET "${text}" binary sha256)
string(JSON image GET "${text}" binary path)
file(SHA256 "${wanted_image}" wanted_digest)

set(held "${name} ${version}, SHA-256 ${digest}")
set(wanted "${wanted_name} ${wanted_version}, SHA-256 ${wanted_digest}")
if(NOT held STREQUAL wanted)
    message(FATAL_ERROR "The bundle holds another release (${held}) than the build's settings (${wanted}): build again, "
            "or configure the build with the release that is to be packed.")
endif()
file(INSTALL "${manifest}" "${resources}/${image}" DESTINATION "${CMAKE_INSTALL_PREFIX}/${destination}" TYPE FILE)
