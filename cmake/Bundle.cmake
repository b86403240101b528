# The application is a bundle folder, the same inside on every system; its targets put their results into it.
set(QELMO_BUNDLE "${CMAKE_BINARY_DIR}/QELMO Varnox Flasher.app")
set(QELMO_BUNDLE_RESOURCES "${QELMO_BUNDLE}/Contents/Resources")
file(MAKE_DIRECTORY "${QELMO_BUNDLE_RESOURCES}")
