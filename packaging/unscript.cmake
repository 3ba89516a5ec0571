# packaging/unscript.cmake - run by cpack behind the packages: where it looks for what a
# debugger needs it adds scripts that run ldconfig to those of libraries. A trigger does that.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(package MATCHES "/lib[a-z]+[0-9]+_[^/]*\\.deb$")
        set(folder ${package}.files)
        execute_process(COMMAND dpkg-deb -R ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE ${folder}/DEBIAN/postinst ${folder}/DEBIAN/postrm)
        execute_process(COMMAND dpkg-deb --root-owner-group -Z${CPACK_DEBIAN_COMPRESSION_TYPE} -b
                                ${folder} ${package}
                        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
        file(REMOVE_RECURSE ${folder})
    endif()
endforeach()
