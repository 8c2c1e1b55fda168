# What an installation holds. The programs stand in lib/zel8/<version>/bin, from where they find their data; bin has links to them,
# so that a new version can be put beside an old one.
set(TOOLS aszel8 zel8 zellink zelobj zelrun zelsim)
set(HOME lib/zel8/${PROJECT_VERSION})
set(LINKS ${CMAKE_BINARY_DIR}/links)

install(TARGETS ${TOOLS} DESTINATION ${HOME}/bin)
install(DIRECTORY dat/ DESTINATION ${HOME}/zel/dat)
install(DIRECTORY ${CMAKE_BINARY_DIR}/zel/include DESTINATION ${HOME}/zel)
file(MAKE_DIRECTORY ${LINKS})
foreach(tool IN LISTS TOOLS)
    file(CREATE_LINK ../${HOME}/bin/${tool} ${LINKS}/${tool} SYMBOLIC)
    install(FILES ${LINKS}/${tool} DESTINATION bin)
    install(FILES docs/${tool}.1 DESTINATION share/man/man1)
    install(FILES completions/${tool}.bash DESTINATION share/bash-completion/completions RENAME ${tool})
    install(FILES completions/zel8.fish DESTINATION share/fish/vendor_completions.d RENAME ${tool}.fish)
endforeach()
install(FILES completions/_zel8 DESTINATION share/zsh/vendor-completions)

# For build systems.
install(DIRECTORY share/cmake DESTINATION share)
install(DIRECTORY share/bazel editors DESTINATION share/zel8 PATTERN node_modules EXCLUDE)
configure_file(cmake/zel8.pc.in zel8.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zel8.pc DESTINATION share/pkgconfig)

# For people: the manual, as pages for a browser too where the program that makes them is there, and the examples.
set(DOC share/doc/zel8)
install(FILES README.md LICENSE CHANGELOG.md docs/manual.md DESTINATION ${DOC})
install(DIRECTORY docs/manual DESTINATION ${DOC})
install(DIRECTORY examples DESTINATION ${DOC} PATTERN build EXCLUDE)
find_program(CMARK cmark-gfm)
if(CMARK)
    file(GLOB chapters CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/manual.md ${CMAKE_SOURCE_DIR}/docs/manual/*.md)
    add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/html/manual.html
                       COMMAND sh ${CMAKE_SOURCE_DIR}/scripts/manual-html.sh ${CMAKE_SOURCE_DIR}/docs ${CMAKE_BINARY_DIR}/html
                       DEPENDS ${chapters} ${CMAKE_SOURCE_DIR}/scripts/manual-html.sh VERBATIM)
    add_custom_target(html ALL DEPENDS ${CMAKE_BINARY_DIR}/html/manual.html)
    install(DIRECTORY ${CMAKE_BINARY_DIR}/html DESTINATION ${DOC})
endif()

add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -DMANIFEST=${CMAKE_BINARY_DIR}/install_manifest.txt
                                    -P ${CMAKE_SOURCE_DIR}/cmake/uninstall.cmake VERBATIM)

# Packages: a tarball that is unpacked anywhere, and one for Debian and its like.
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGE_NAME zel8)
set(CPACK_PACKAGE_CONTACT "The aszel8 maintainers <maintainers@example.org>")
set(CPACK_PACKAGE_FILE_NAME zel8-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_STRIP_FILES ON)
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Assembler, linker and simulator for the ZEL8 family")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "A macro assembler with an optimiser, a linker that checks whole programs, and a
 simulator with ports, timers, serial units and a debugger, for the 8-bit
 microcontrollers of the ZEL8 family; and a driver with the options that
 compilers have.")
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "cpp, binutils, cmake")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/package.cmake)
include(CPack)
