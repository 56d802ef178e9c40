# GSettings stores through dconf: its module for GIO, its service, and a session bus of its own to reach it by.
# Sets DCONF_FOUND; the target bench_schema compiles the schema of the benchmark.

find_package(PkgConfig REQUIRED)
pkg_check_modules(gio QUIET IMPORTED_TARGET gio-2.0)
find_program(GLIB_COMPILE_SCHEMAS glib-compile-schemas)
find_program(DBUS_RUN_SESSION dbus-run-session)
set(DCONF_FOUND FALSE)
if(gio_FOUND AND GLIB_COMPILE_SCHEMAS AND DBUS_RUN_SESSION)
    pkg_get_variable(gio_modules gio-2.0 giomoduledir)
    if(EXISTS "${gio_modules}/libdconfsettings.so")
        set(DCONF_FOUND TRUE)
    endif()
endif()

if(DCONF_FOUND)
    set(schema "${CMAKE_CURRENT_SOURCE_DIR}/preferences/org.velora.bench.gschema.xml")
    set(schema_folder "${CMAKE_CURRENT_BINARY_DIR}/schemas")
    add_custom_command(
        OUTPUT "${schema_folder}/gschemas.compiled"
        COMMAND ${CMAKE_COMMAND} -E copy "${schema}" "${schema_folder}/org.velora.bench.gschema.xml"
        COMMAND "${GLIB_COMPILE_SCHEMAS}" --strict "${schema_folder}"
        DEPENDS "${schema}"
        VERBATIM)
    add_custom_target(bench_schema DEPENDS "${schema_folder}/gschemas.compiled")
endif()
