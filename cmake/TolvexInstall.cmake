# Install rules, the CMake package, tolvex.pc and the two Debian packages (cpack -G DEB).
# All paths are relative, so a moved installation still works.

include(CMakePackageConfigHelpers)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Tolvex)

install(TARGETS Tolvex EXPORT TolvexTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(TARGETS tolvex-driver RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
set_target_properties(tolvex-driver PROPERTIES
    INSTALL_RPATH $ORIGIN/../${CMAKE_INSTALL_LIBDIR})

install(EXPORT TolvexTargets NAMESPACE Tolvex:: DESTINATION ${packageDir} COMPONENT dev)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/TolvexConfig.cmake.in ${PROJECT_BINARY_DIR}/TolvexConfig.cmake
    INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/TolvexConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/TolvexConfig.cmake ${PROJECT_BINARY_DIR}/TolvexConfigVersion.cmake
    DESTINATION ${packageDir} COMPONENT dev)

set(pkgConfigDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${pkgConfigDir} OUTPUT_VARIABLE prefixFromPkgConfigDir)
configure_file(
    ${CMAKE_CURRENT_LIST_DIR}/tolvex.pc.in ${PROJECT_BINARY_DIR}/tolvex.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tolvex.pc DESTINATION ${pkgConfigDir} COMPONENT dev)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tolvex)
set(CPACK_PACKAGE_VENDOR "Tolvex")
set(CPACK_PACKAGE_CONTACT "Tolvex maintainers <maintainers@tolvex.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtolvex${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# dpkg-shlibdeps gives this dependency to a program that uses the library; docs/abi.md promises ">=".
# CPack has no such variable for a single component.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
if(CMAKE_CROSSCOMPILING)
    # dpkg-shlibdeps knows only the packages of this machine. Package/DebianPackages checks the list.
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
        "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libssl3 (>= 3.0.0), libstdc++6 (>= 12), libuuid1 (>= 2.16)")
else()
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
endif()
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtolvex-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "libtolvex${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
include(CPack)
