# Debian's habits, once the files of the package stand in their folder: compressed manual pages and changes, a file of that name
# for the licence, and why the programs are static.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
file(GLOB pages ${share}/man/man1/*.1)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${share}/doc/zel8/changelog
     "zel8 (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n  * Changes are told in CHANGELOG.md.\n\n"
     " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
execute_process(COMMAND gzip -9n ${pages} ${share}/doc/zel8/changelog COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${share}/doc/zel8/LICENSE ${share}/doc/zel8/copyright)
file(WRITE ${share}/lintian/overrides/zel8
     "# A build starts them thousands of times: without loading libraries they start in half the time.\n"
     "zel8: statically-linked-binary *\n"
     "zel8: embedded-library zlib *\n")
