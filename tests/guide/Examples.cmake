# The examples of the documentation: of each page that has some, a source of GuideTests. A part of tests/CMakeLists.txt.
find_program(VELORA_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)
file(GLOB VELORA_GUIDE_PAGES CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/guide/*.md")
foreach(page README.md docs/fleet.md docs/log-files.md docs/preferences.md docs/security.md)
    list(APPEND VELORA_GUIDE_PAGES "${PROJECT_SOURCE_DIR}/${page}")
endforeach()
foreach(page IN LISTS VELORA_GUIDE_PAGES)
    cmake_path(GET page STEM name)
    set(source "${CMAKE_CURRENT_BINARY_DIR}/guide/${name}.cpp")
    add_custom_command(OUTPUT "${source}"
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${CMAKE_CURRENT_BINARY_DIR}/guide"
        COMMAND "${VELORA_PYTHON}" -B "${CMAKE_CURRENT_SOURCE_DIR}/guide/examples.py" "${page}" "${source}"
        DEPENDS "${page}" guide/examples.py
        VERBATIM)
    target_sources(GuideTests PRIVATE "${source}")
endforeach()
