# The first step of enable_language(ZEL8): which program is the compiler.
if(NOT CMAKE_ZEL8_COMPILER)
    find_program(CMAKE_ZEL8_COMPILER zel8 HINTS "${CMAKE_CURRENT_LIST_DIR}/../../../bin" PATHS "$ENV{ZEL8}"
                 DOC "The driver of assembler and linker")
    if(ZEL8_COMPILER)
        set(CMAKE_ZEL8_COMPILER "${ZEL8_COMPILER}")
    endif()
endif()
mark_as_advanced(CMAKE_ZEL8_COMPILER)
find_program(CMAKE_AR ar)

execute_process(COMMAND "${CMAKE_ZEL8_COMPILER}" --version OUTPUT_VARIABLE _zel8_version ERROR_QUIET)
string(REGEX MATCH "[0-9]+\\.[0-9.]+" CMAKE_ZEL8_COMPILER_VERSION "${_zel8_version}")
unset(_zel8_version)
set(CMAKE_ZEL8_COMPILER_ID ZEL8)
set(CMAKE_ZEL8_COMPILER_ENV_VAR ZEL8)

configure_file("${CMAKE_CURRENT_LIST_DIR}/CMakeZEL8Compiler.cmake.in" "${CMAKE_PLATFORM_INFO_DIR}/CMakeZEL8Compiler.cmake" @ONLY)
