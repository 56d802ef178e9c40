# The target docs: the guide and the reference of the installed headers as one site, in build/docs/html.
# What it needs is looked for only when it is built.

file(GLOB VELORA_PAGES CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/guide/*.md" "${PROJECT_SOURCE_DIR}/docs/*.md")
set(VELORA_DOCUMENTED ${VELORA_PUBLIC_HEADERS})
list(TRANSFORM VELORA_DOCUMENTED PREPEND "${header_folder}/")
list(PREPEND VELORA_DOCUMENTED ${VELORA_PAGES}
    "${PROJECT_SOURCE_DIR}/CONTRIBUTING.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md")
list(JOIN VELORA_DOCUMENTED "\" \\\n    \"" VELORA_DOCUMENTED)
set(VELORA_DOCUMENTED "\"${VELORA_DOCUMENTED}\"")

configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in" "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
add_custom_target(docs
    COMMAND "${CMAKE_COMMAND}" -E rm -rf "${PROJECT_SOURCE_DIR}/build/docs/html"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_SOURCE_DIR}/build/docs"
    COMMAND doxygen "${PROJECT_BINARY_DIR}/Doxyfile"
    COMMAND "${PROJECT_SOURCE_DIR}/scripts/check-links.py" "${PROJECT_SOURCE_DIR}/build/docs/html"
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    COMMENT "Writing the documentation"
    VERBATIM)
