# The target docs: a reference of the installed headers, in build/docs/html. Doxygen is looked for only
# when it is built.

list(TRANSFORM VELORA_PUBLIC_HEADERS PREPEND "\\\n    \"${header_folder}/" OUTPUT_VARIABLE documented)
list(TRANSFORM documented APPEND "\" ")
list(JOIN documented "" VELORA_DOCUMENTED)
string(PREPEND VELORA_DOCUMENTED "\"${PROJECT_SOURCE_DIR}/README.md\" ")

configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in" "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
add_custom_target(docs
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${PROJECT_SOURCE_DIR}/build/docs"
    COMMAND doxygen "${PROJECT_BINARY_DIR}/Doxyfile"
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    COMMENT "Writing the reference"
    VERBATIM)
