# What is installed, by component: the library (library); its public headers, a CMake package and a pkg-config
# file (development); and what tools/CMakeLists.txt installs (tools). All of it may be moved to another folder
# afterwards.

include(CMakePackageConfigHelpers)

# Headers for the library's own use, as regular expressions without the ".h"; no public header includes
# one of them.
set(VELORA_INTERNAL_HEADERS
    Platform/Base64
    "Platform/DefaultsStore.+"
    Platform/Descriptor
    Platform/ExceptionGuard
    Platform/ExtendedAttributes
    Platform/FileContents
    Platform/FileMove
    Platform/ForkHandlers
    Platform/Lazy
    Platform/LocalTime
    Platform/OwnFolder
    Platform/ProcessInfo
    Platform/Reused
    Platform/SharedMapping
    Platform/StandardOutput
    Platform/SystemLog
    Platform/Text
    Platform/TypeName
    XCGLogger/Destinations/FileDestinationState
    XCGLogger/Destinations/LogFile
    XCGLogger/Destinations/PendingLines
    XCGLogger/Destinations/QueuedLines
    XCGLogger/EngineGuard
    XCGLogger/InternalUserInfo
    XCGLogger/LogFormatters/JSONText
    XCGLogger/LogFormatters/LevelListing
    XCGLogger/LogFormatters/RGBText
    UserDefaults/PreferenceTable
    XCGLogger/UserInfoValue)

set(header_folder "${PROJECT_SOURCE_DIR}/Velora_UserDefaults")
file(GLOB_RECURSE VELORA_PUBLIC_HEADERS CONFIGURE_DEPENDS RELATIVE "${header_folder}" "${header_folder}/*.h")
foreach(pattern IN LISTS VELORA_INTERNAL_HEADERS)
    list(FILTER VELORA_PUBLIC_HEADERS EXCLUDE REGEX "^${pattern}\\.h$")
endforeach()

foreach(header IN LISTS VELORA_PUBLIC_HEADERS)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES "${header_folder}/${header}" COMPONENT development
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/Velora_UserDefaults/${folder}")
endforeach()

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/Velora_UserDefaults")
set(generated_folder "${PROJECT_BINARY_DIR}/package")

install(TARGETS Velora_UserDefaults EXPORT Velora_UserDefaultsTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT library NAMELINK_COMPONENT development
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
install(EXPORT Velora_UserDefaultsTargets NAMESPACE Velora_UserDefaults:: COMPONENT development
    DESTINATION "${package_folder}")

# The programs that the CMake package offers as its component "tools".
set(VELORA_TOOLS)
if(VELORA_BUILD_TOOLS)
    get_property(tool_targets DIRECTORY "${PROJECT_SOURCE_DIR}/tools" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS tool_targets)
        get_target_property(target_type ${target} TYPE)
        if(target_type STREQUAL "EXECUTABLE")
            list(APPEND VELORA_TOOLS ${target})
        endif()
    endforeach()
endif()

# What the hosts of a shared library need not have, those of a static one link themselves.
get_target_property(library_type Velora_UserDefaults TYPE)
if(library_type STREQUAL "STATIC_LIBRARY")
    set(VELORA_IS_STATIC ON)
    set(VELORA_PC_REQUIRES "fmt icu-i18n icu-uc liburiparser")
else()
    set(VELORA_IS_STATIC OFF)
    set(VELORA_PC_REQUIRES "fmt")
endif()

configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/Velora_UserDefaultsConfig.cmake.in"
    "${generated_folder}/Velora_UserDefaultsConfig.cmake"
    INSTALL_DESTINATION "${package_folder}"
    PATH_VARS CMAKE_INSTALL_BINDIR)
write_basic_package_version_file(
    "${generated_folder}/Velora_UserDefaultsConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${generated_folder}/Velora_UserDefaultsConfig.cmake"
    "${generated_folder}/Velora_UserDefaultsConfigVersion.cmake"
    COMPONENT development
    DESTINATION "${package_folder}")

# The pkg-config file names its prefix by the way up from the folder it lies in.
set(pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${pc_folder}"
    OUTPUT_VARIABLE VELORA_PC_PREFIX)
configure_file("${PROJECT_SOURCE_DIR}/cmake/Velora_UserDefaults.pc.in" "${generated_folder}/Velora_UserDefaults.pc" @ONLY)
install(FILES "${generated_folder}/Velora_UserDefaults.pc" COMPONENT development DESTINATION "${pc_folder}")
