# CMake's find_package(zel8): the language ZEL8 for enable_language(), and two functions.
#
#   zel8_chip(TARGET CHIP)
#       Assembles and links the target for this chip, rather than for the one that ZEL8_CHIP names.
#   zel8_add_test(NAME name TARGET target [SCRIPT file] [ARGS word...])
#       A test that runs the target in the simulator and passes if that ends with 0.
#
# Variables: ZEL8_CHIP, the chip of all targets that name no other one; ZEL8_COMPILER and ZEL8_SIMULATOR, the programs.
get_filename_component(_zel8_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
find_program(ZEL8_COMPILER zel8 HINTS "${_zel8_prefix}/bin" DOC "The driver of assembler and linker")
find_program(ZEL8_SIMULATOR zelsim HINTS "${_zel8_prefix}/bin" DOC "The simulator")
unset(_zel8_prefix)

include(FindPackageHandleStandardArgs)
set(${CMAKE_FIND_PACKAGE_NAME}_CONFIG "${CMAKE_CURRENT_LIST_FILE}")
find_package_handle_standard_args(zel8 REQUIRED_VARS ZEL8_COMPILER HANDLE_COMPONENTS)

list(PREPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")
set(ZEL8_CHIP "" CACHE STRING "The chip of all targets that name no other one")

function(zel8_chip target chip)
    set_target_properties(${target} PROPERTIES ZEL8_CHIP "${chip}")
    target_compile_options(${target} PRIVATE "$<$<COMPILE_LANGUAGE:ZEL8>:-mcpu=${chip}>")
    target_link_options(${target} PRIVATE "$<$<LINK_LANGUAGE:ZEL8>:-mcpu=${chip}>")
endfunction()

function(zel8_add_test)
    cmake_parse_arguments(PARSE_ARGV 0 test "" "NAME;TARGET;SCRIPT" ARGS)
    foreach(needed IN ITEMS NAME TARGET)
        if(NOT test_${needed})
            message(FATAL_ERROR "zel8_add_test needs ${needed}")
        endif()
    endforeach()
    if(test_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "zel8_add_test doesn't know ${test_UNPARSED_ARGUMENTS}")
    endif()
    get_target_property(chip ${test_TARGET} ZEL8_CHIP)
    if(NOT chip)
        set(chip "${ZEL8_CHIP}")
    endif()
    if(test_SCRIPT)
        get_filename_component(script "${test_SCRIPT}" ABSOLUTE)
        list(PREPEND test_ARGS "--script=${script}")
    endif()
    add_test(NAME "${test_NAME}"
             COMMAND "${ZEL8_SIMULATOR}" "-mcpu=${chip}" --strict --quiet ${test_ARGS} "$<TARGET_FILE:${test_TARGET}>")
endfunction()
