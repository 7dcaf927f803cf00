# Run by cpack over the staged files: the licence and the changes where and as Debian has them, and
# the man pages compressed.
# Without these two cpack only warns, and makes a package that depends on nothing.
find_program(dpkg_shlibdeps dpkg-shlibdeps REQUIRED)
find_program(file file REQUIRED)

set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})
configure_file(${CPACK_KELPMORAY_SOURCE_DIR}/LICENSE ${documents}/copyright COPYONLY)

file(READ ${CPACK_KELPMORAY_SOURCE_DIR}/CHANGELOG.md changes)
if(NOT changes MATCHES "\n## ([0-9.]+) \\(([0-9-]+)\\)\n\n(- [^#]*[^#\n])")
  message(FATAL_ERROR "CHANGELOG.md has no release such as '## 1.0.0 (2026-01-31)' with its list")
endif()
set(version ${CMAKE_MATCH_1})
set(day ${CMAKE_MATCH_2})
string(REGEX REPLACE "(^|\n)- " "\\1  * " list "${CMAKE_MATCH_3}")
execute_process(COMMAND date -u -R -d ${day} OUTPUT_VARIABLE date COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${documents}/changelog
  "${CPACK_PACKAGE_NAME} (${version}) unstable; urgency=low\n\n${list}\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${date}")

file(GLOB pages ${share}/man/man1/*)
execute_process(COMMAND gzip -9n ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
