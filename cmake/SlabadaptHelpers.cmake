# Warnings for our own targets only.
function(slabadapt_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra)
    if(SLABADAPT_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()

# A library of the package: headers are included with their folder
# ("meer/arrays.h", "host/win32/win32.h"), so the include root is the source root.
#   slabadapt_library(<target> EXPORT_NAME <name> SOURCES ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...])
function(slabadapt_library target)
    cmake_parse_arguments(ARG "" "EXPORT_NAME" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES})
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    # Position-independent (so that the libraries can go into a shared library too), but our
    # functions are not meant to be replaced at load time: let the compiler take a function
    # into its callers within a file as it does without -fPIC (clang assumes so already).
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -fno-semantic-interposition)
    endif()
    if(ARG_EXPORT_NAME)
        set_target_properties(${target} PROPERTIES EXPORT_NAME ${ARG_EXPORT_NAME})
        add_library(slabadapt::${ARG_EXPORT_NAME} ALIAS ${target})
    endif()
    if(ARG_PUBLIC_LIBS)
        target_link_libraries(${target} PUBLIC ${ARG_PUBLIC_LIBS})
    endif()
    if(ARG_PRIVATE_LIBS)
        target_link_libraries(${target} PRIVATE ${ARG_PRIVATE_LIBS})
    endif()
    slabadapt_warnings(${target})
    set_property(GLOBAL APPEND PROPERTY SLABADAPT_INSTALL_TARGETS ${target})
endfunction()

# Installs the headers of a source folder with the folder kept (include/<dir>/...).
function(slabadapt_install_headers dir)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir}/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${dir}
        FILES_MATCHING PATTERN "*.h")
endfunction()

# A GoogleTest executable registered with CTest.
#   slabadapt_test(<name> SOURCES ... LIBS ...)
function(slabadapt_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} slabadapt_test_support GTest::gtest GTest::gmock
        GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
    slabadapt_warnings(${name})
    gtest_discover_tests(${name} WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
        PROPERTIES ENVIRONMENT "SLABADAPT_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
        DISCOVERY_TIMEOUT 60)
endfunction()

# A line for the installed package config, for a dependency a static library links,
# e.g. slabadapt_config_dependency("find_dependency(SQLite3)").
function(slabadapt_config_dependency line)
    set_property(GLOBAL APPEND PROPERTY SLABADAPT_CONFIG_DEPENDENCIES "${line}")
endfunction()
