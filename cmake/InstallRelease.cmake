# Installs the release of the bundle whose resource folder is ${resources}: the manifest and the image it names.
set(manifest "${resources}/qelmo-varnox-flash-manifest.json")
file(READ "${manifest}" text)
string(JSON image GET "${text}" binary path)
file(INSTALL "${manifest}" "${resources}/${image}" DESTINATION "${CMAKE_INSTALL_PREFIX}/${destination}" TYPE FILE)
