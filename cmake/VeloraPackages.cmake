# Debian packages, made by `make packages` (the preset "packages"): the library, its development files, the tools.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velora-userdefaults)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "Velora_UserDefaults maintainers <maintainers@velora.example>")
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE velora-userdefaults)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Of the packages here, dpkg-shlibdeps must be told where the library is; whose it is, says each package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/Velora_UserDefaults")

# The name of the library's package is the name in its file, as dependent packages expect: lib<name><major version>.
set(library_package "libvelora-userdefaults${PROJECT_VERSION_MAJOR}")
set(about_all "Velora_UserDefaults keeps the preferences of a remote-desktop application in a
readable file for each user, and logs to the console, the system log and
rotating files.
.")
# Empty: otherwise it stands above each description as the same summary of all packages.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(in_short "preferences and logging of a remote-desktop application")
set(same_version "${library_package} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
# Programs that are linked with this version need at least this version.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${in_short}
${about_all}
This package contains the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvelora-userdefaults-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_version}, libfmt-dev")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${in_short} (development)
${about_all}
This package contains the headers, the CMake package and the pkg-config file.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME velora-userdefaults-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same_version}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${in_short} (tools)
${about_all}
This package contains the command-line tools.")

# What Debian wants of a package beside what `make install` installs.
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/FinishDebianPackages.cmake")
set(CPACK_VELORA_DEBIAN_FOLDER "${PROJECT_SOURCE_DIR}/packaging/debian")
include(CPack)
