# What `cmake --install` puts down: the two shared libraries (and the engines built), their
# public headers, a CMake package (`find_package(zorva [COMPONENTS gtk gstreamer webkitgtk glib])`
# → `zorva::zorva`, `zorva::platform`, `zorva::gstreamer`, ...) and a pkg-config file for each
# library.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set_target_properties(zorva_platform PROPERTIES EXPORT_NAME platform)
# libzorva finds libzorva_platform beside itself wherever the tree is installed.
set_target_properties(zorva PROPERTIES EXPORT_NAME zorva INSTALL_RPATH "$ORIGIN")

install(TARGETS zorva zorva_platform
        EXPORT zorvaTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/zorva
                  ${PROJECT_SOURCE_DIR}/platform/include/zorva
                  ${PROJECT_BINARY_DIR}/include/zorva
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The engines a host may pick at start-up, when they were built: zorva::glib, zorva::gstreamer,
# zorva::webkitgtk and the on-screen host zorva::gtk, headers under zorva/engines/, and a
# pkg-config file each (zorva-gtk, ...) that requires what the engine's users link too. Each is a
# component of the CMake package, with a targets file of its own.
set(ZORVA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/zorva)
foreach(engine glib gstreamer webkitgtk gtk)
  if(TARGET zorva_${engine})
    set_target_properties(zorva_${engine} PROPERTIES EXPORT_NAME ${engine} INSTALL_RPATH "$ORIGIN")
    install(TARGETS zorva_${engine}
            EXPORT zorva-${engine}Targets
            LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT zorva-${engine}Targets NAMESPACE zorva:: DESTINATION ${ZORVA_CMAKE_DIR})
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/engines/${engine}/include/zorva
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    # zorva::<library> is zorva-<library>.pc.
    get_target_property(requires zorva_${engine} INTERFACE_LINK_LIBRARIES)
    list(TRANSFORM requires REPLACE "^zorva::" "zorva-")
    list(JOIN requires " " requires)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/zorva-engine.pc.in
                   ${PROJECT_BINARY_DIR}/zorva-${engine}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/zorva-${engine}.pc
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
  endif()
endforeach()

# Named zorva-config.cmake, so that find_package(zorva) and find_package(Zorva) both find it.
install(EXPORT zorvaTargets NAMESPACE zorva:: DESTINATION ${ZORVA_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/zorva-config.cmake.in
                              ${PROJECT_BINARY_DIR}/zorva-config.cmake
                              INSTALL_DESTINATION ${ZORVA_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zorva-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/zorva-config.cmake ${PROJECT_BINARY_DIR}/zorva-config-version.cmake
        DESTINATION ${ZORVA_CMAKE_DIR})

foreach(module zorva zorva-platform)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
