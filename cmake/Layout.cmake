# The build tree mirrors the installed tree, so that one rule relative to the executable finds the
# resources and the packer in both.
set(KELPMORAY_BIN_DIR ${PROJECT_BINARY_DIR}/bin)
set(KELPMORAY_LIBEXEC_DIR ${PROJECT_BINARY_DIR}/libexec/kelpmoray)
set(KELPMORAY_SHARE_DIR ${PROJECT_BINARY_DIR}/share/kelpmoray)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${KELPMORAY_BIN_DIR})
