# What the packages need beyond an installation; cpack reads it for each kind of package.
if(CPACK_GENERATOR STREQUAL DEB)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
else()
    set(CPACK_PACKAGING_INSTALL_PREFIX /)
endif()
