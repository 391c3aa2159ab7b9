include(CMakePackageConfigHelpers)

get_property(_slabadapt_targets GLOBAL PROPERTY SLABADAPT_INSTALL_TARGETS)
if(_slabadapt_targets)
    install(TARGETS ${_slabadapt_targets} EXPORT slabadaptTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT slabadaptTargets NAMESPACE slabadapt::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/slabadapt)
endif()

get_property(_deps GLOBAL PROPERTY SLABADAPT_CONFIG_DEPENDENCIES)
if(_deps)
    list(REMOVE_DUPLICATES _deps)
    list(JOIN _deps "\n" SLABADAPT_CONFIG_DEPENDENCIES)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/slabadaptConfig.cmake.in
    ${PROJECT_BINARY_DIR}/slabadaptConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/slabadapt)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/slabadaptConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/slabadaptConfig.cmake
    ${PROJECT_BINARY_DIR}/slabadaptConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/slabadapt)
