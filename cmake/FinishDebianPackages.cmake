# Run by CPack on the folders it makes packages of, one for each component: adds copyright and changelog, packs
# manual pages, and puts completions for zsh where Debian's zsh looks for those of packages.

function(pack file)
    execute_process(COMMAND gzip -9 --no-name --force "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    set(root "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX}")
    string(TOUPPER "${component}" upper)
    set(documents "${root}/share/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME}")
    file(COPY "${CPACK_VELORA_DEBIAN_FOLDER}/copyright" "${CPACK_VELORA_DEBIAN_FOLDER}/changelog"
        DESTINATION "${documents}"
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
        DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    pack("${documents}/changelog")

    file(GLOB pages "${root}/share/man/man*/*.[1-9]")
    foreach(page IN LISTS pages)
        pack("${page}")
    endforeach()

    if(EXISTS "${root}/share/zsh/site-functions")
        file(RENAME "${root}/share/zsh/site-functions" "${root}/share/zsh/vendor-completions")
    endif()
endforeach()
