# The Debian package: `cpack --preset deb` on a release build. It holds what `cmake --install` puts into
# /usr, and has no scripts of its own: the bus, the menus and the icon caches notice new files.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelpmoray)
set(CPACK_PACKAGE_CONTACT "The Kelpmoray authors <kelpmoray@quenbark.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "sign application packages and pack them into zip archives")
set(CPACK_PACKAGE_DESCRIPTION
"Kelpmoray takes application packages (Name.app), and folders that hold some,
from its window, the desktop or a terminal, asks about each folder, signs
every package with one of your identities, nested code first, and packs it
into a zip archive beside it, on all processors. Links, modes and times are
kept, and an older archive is replaced once the new one is whole. Identities
are imported from files or used on a token; no Mac is needed.")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://quenbark.com/kelpmoray)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# A build machine does without all of these. The keeper of secrets holds the passphrase of keys. The window shows a processed folder by the `open` of
# xdg-utils, which wants a file manager: any will do.
string(CONCAT CPACK_DEBIAN_PACKAGE_RECOMMENDS
  "default-dbus-session-bus | dbus-session-bus, gnome-keyring | kwalletmanager, xdg-utils, "
  "pcmanfm | thunar | nautilus | dolphin | nemo | caja | pcmanfm-qt")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS qt6-wayland)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/DebianDocuments.cmake)
set(CPACK_KELPMORAY_SOURCE_DIR ${PROJECT_SOURCE_DIR})
include(CPack)
