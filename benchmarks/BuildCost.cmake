# What buildcost.py needs to compile and link one file as a host of each logger does: its flags and its library.

set(VELORA_LOGGER_FLAGS "-std=c++20;-O2;-I${PROJECT_SOURCE_DIR};$<TARGET_FILE:Velora_UserDefaults>;$<TARGET_FILE:fmt::fmt>")
set(entries "\"ours\": [\"$<JOIN:${VELORA_LOGGER_FLAGS},\", \">\"]")
if(spdlog_FOUND)
    set(definitions "$<TARGET_PROPERTY:spdlog::spdlog,INTERFACE_COMPILE_DEFINITIONS>")
    set(spdlog_flags "-std=c++20;-O2;-D$<JOIN:${definitions},;-D>;$<TARGET_FILE:spdlog::spdlog>;$<TARGET_FILE:fmt::fmt>")
    string(APPEND entries ",\n \"spdlog\": [\"$<JOIN:${spdlog_flags},\", \">\"]")
endif()
file(GENERATE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/buildcost.json"
     CONTENT "{\"compiler\": [\"${CMAKE_CXX_COMPILER}\"],\n ${entries}}\n")
add_dependencies(benchmarks Velora_UserDefaults)

# Never built: with these the static analysis knows how the files are compiled.
add_library(buildcost_ours OBJECT EXCLUDE_FROM_ALL buildcost/ours.cpp)
target_link_libraries(buildcost_ours PRIVATE velora_compiler Velora_UserDefaults::Velora_UserDefaults)
target_compile_definitions(buildcost_ours PRIVATE WITH_LOGGER WITH_LINE)
if(spdlog_FOUND)
    add_library(buildcost_spdlog OBJECT EXCLUDE_FROM_ALL buildcost/spdlog.cpp)
    target_link_libraries(buildcost_spdlog PRIVATE velora_compiler spdlog::spdlog)
    target_compile_definitions(buildcost_spdlog PRIVATE WITH_LOGGER WITH_LINE)
endif()
