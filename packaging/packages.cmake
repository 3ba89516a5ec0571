# packaging/packages.cmake - what packages have besides the library and the programs, which
# is made with ORV_DOCS: manual pages, completion in shells, documents, examples. And how cpack makes five
# Debian packages of it all (packaging/packages.sh does it from the beginning).
set(ORV_MAINTAINER "The maintainers of liborvinterpreter <maintainers@orvinterpreter.example>"
    CACHE STRING "Who answers for the packages: NAME <ADDRESS>")
set(ORV_DPKG_ADMIN "" CACHE PATH "What dpkg knows of another machine's packages (packages.sh)")
set(ORV_DPKG_LIBRARIES "" CACHE PATH "Where those are unpacked")
set(orv_packaging ${PROJECT_SOURCE_DIR}/packaging)
set(orv_packages ${PROJECT_BINARY_DIR}/packaging)  # what is made for them
set(orv_package_library liborvinterpreter${PROJECT_VERSION_MAJOR})
set(orv_package_host liborvhost${PROJECT_VERSION_MAJOR})
set(orv_package_development liborvinterpreter-dev)
set(orv_package_tools orvinterpreter-tools)
set(orv_package_documentation liborvinterpreter-doc)
set(orv_components library host development)
if(ORV_TOOLS)
    list(APPEND orv_components tools documentation)
endif()

# orv_man(PAGE SOURCE...) - a manual page, made of these files by man.sh.
function(orv_man page)
    set(page ${orv_packages}/man/${page}.gz)
    add_custom_command(OUTPUT ${page} COMMAND ${orv_packaging}/man.sh ${page} ${ARGN}
                       DEPENDS ${orv_packaging}/man.sh ${orv_packaging}/declarations.sh ${ARGN}
                               ${PROJECT_SOURCE_DIR}/CHANGES.md VERBATIM)
    set_property(GLOBAL APPEND PROPERTY orv_pages ${page})
endfunction()

if(ORV_DOCS)
    if(ORV_TOOLS AND CMAKE_CROSSCOMPILING)
        message(FATAL_ERROR "ORV_DOCS runs the programs: for another machine it is -DORV_TOOLS=OFF")
    endif()
    if(ORV_TOOLS)
        find_program(ORV_HELP2MAN help2man REQUIRED)
    endif()
    find_program(ORV_PANDOC pandoc REQUIRED)
    set(doc ${CMAKE_INSTALL_DATADIR}/doc)
    set(man ${CMAKE_INSTALL_MANDIR})

    file(MAKE_DIRECTORY ${orv_packages}/man)
    if(ORV_TOOLS)
        set(programs orv-render orv-textdb orv-check orv-preview)
        foreach(program ${programs})
            orv_man(${program}.1 $<TARGET_FILE:${program}>)
            install(FILES ${orv_packages}/man/${program}.1.gz DESTINATION ${man}/man1 COMPONENT tools)
        endforeach()
        # Editors lead to it from a finding.
        add_custom_command(OUTPUT ${orv_packages}/kinds.md DEPENDS orv-check
                           COMMAND sh -c "$<TARGET_FILE:orv-check> --list >${orv_packages}/kinds.md"
                           VERBATIM)
        set_property(GLOBAL APPEND PROPERTY orv_pages ${orv_packages}/kinds.md)
        install(FILES ${orv_packages}/kinds.md DESTINATION ${doc}/${orv_package_tools} COMPONENT tools)
        # What completes their command lines, where each shell looks for it.
        set(completions ${orv_packages}/completions)
        file(MAKE_DIRECTORY ${completions})
        set(data ${CMAKE_INSTALL_DATADIR})
        set(zsh_functions site-functions)
        if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
            set(zsh_functions vendor-completions)
        endif()
        foreach(program ${programs})
            add_custom_command(
                OUTPUT ${completions}/${program} ${completions}/_${program} ${completions}/${program}.fish
                COMMAND ${orv_packaging}/complete.py $<TARGET_FILE:${program}> ${completions}
                DEPENDS ${orv_packaging}/complete.py ${program} VERBATIM)
            set_property(GLOBAL APPEND PROPERTY orv_pages ${completions}/${program})
            install(FILES ${completions}/${program} DESTINATION ${data}/bash-completion/completions
                    COMPONENT tools)
            install(FILES ${completions}/_${program} DESTINATION ${data}/zsh/${zsh_functions}
                    COMPONENT tools)
            install(FILES ${completions}/${program}.fish DESTINATION ${data}/fish/vendor_completions.d
                    COMPONENT tools)
        endforeach()

        orv_man(orv-templates.7 ${PROJECT_SOURCE_DIR}/docs/templates.md)
        install(FILES ${orv_packages}/man/orv-templates.7.gz DESTINATION ${man}/man7 COMPONENT tools)
    endif()
    set(header ${PROJECT_SOURCE_DIR}/interface/orvinterpreter.h)
    orv_man(orvinterpreter.3 ${PROJECT_SOURCE_DIR}/docs/embedding.md ${header})
    orv_man(orvhost.3 ${PROJECT_SOURCE_DIR}/docs/site.md ${PROJECT_SOURCE_DIR}/host/orvhost.h)
    install(FILES ${orv_packages}/man/orvhost.3.gz DESTINATION ${man}/man3 COMPONENT development)
    # Each function leads to the one page of them all.
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    file(STRINGS ${header} declarations REGEX "^ORV_API .*Orv_Interpreter_[A-Za-z]+\\(")
    file(MAKE_DIRECTORY ${orv_packages}/man3)
    foreach(declaration ${declarations})
        string(REGEX MATCH "Orv_Interpreter_[A-Za-z]+" function "${declaration}")
        file(CREATE_LINK orvinterpreter.3.gz ${orv_packages}/man3/${function}.3.gz SYMBOLIC)
    endforeach()
    install(FILES ${orv_packages}/man/orvinterpreter.3.gz DESTINATION ${man}/man3
            COMPONENT development)
    install(DIRECTORY ${orv_packages}/man3 DESTINATION ${man} COMPONENT development)
    get_property(pages GLOBAL PROPERTY orv_pages)
    add_custom_target(man ALL DEPENDS ${pages})

    # The paths in the documents hold in the installed folder as well.
    install(FILES README.md DESTINATION ${doc}/${orv_package_documentation}
            COMPONENT documentation)
    install(DIRECTORY docs editors DESTINATION ${doc}/${orv_package_documentation}
            COMPONENT documentation PATTERN node_modules EXCLUDE)
    set(examples ${doc}/${orv_package_development}/examples)
    install(FILES packaging/example/CMakeLists.txt DESTINATION ${examples} COMPONENT development)
    install(FILES examples/orv-check.json DESTINATION ${examples} COMPONENT development)
    install(DIRECTORY examples/zarn examples/site DESTINATION ${examples} COMPONENT development
            PATTERN CMakeLists.txt EXCLUDE)
    install(DIRECTORY examples/hosts DESTINATION ${examples} COMPONENT development)

    # What Debian wants of each package, and no other installation.
    string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
    configure_file(packaging/changelog.in ${orv_packages}/changelog.Debian @ONLY)
    configure_file(CHANGES.md ${orv_packages}/changelog COPYONLY)
    foreach(file changelog.Debian changelog)
        execute_process(COMMAND gzip -9nf ${file} WORKING_DIRECTORY ${orv_packages}
                        COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    foreach(component ${orv_components})
        set(package ${orv_package_${component}})
        install(FILES packaging/copyright ${orv_packages}/changelog.Debian.gz
                ${orv_packages}/changelog.gz
                DESTINATION ${doc}/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
        install(FILES packaging/lintian-overrides RENAME ${package}
                DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
                COMPONENT ${component} EXCLUDE_FROM_ALL)
    endforeach()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvinterpreter)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_CONTACT "${ORV_MAINTAINER}")
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)  # it strips, too, and keeps what a debugger needs
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL ${orv_components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE orvinterpreter)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
if(CMAKE_CROSSCOMPILING)
    execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpmachine
        OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE)
    execute_process(COMMAND dpkg-architecture -f -t${machine} -qDEB_HOST_ARCH
        OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
endif()
foreach(component ${orv_components})
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${orv_package_${component}})
endforeach()


# Libraries of several machines are installed beside each other; the others serve all.
# cpack knows no such field before CMake 3.31: it comes behind another.
set(beside "Multi-Arch: same")
set(for_all "Multi-Arch: foreign")

set(about "A template is a page's text with commands in it; the web program answers their
queries, and the page goes to a file descriptor as it is made. The library is
for small machines and needs the C library alone.\n")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "interpreter for page templates of a device's web program
${about}")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION "libs\n${beside}")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${orv_packages}/symbols ${orv_packages}/shlibs
    ${orv_packages}/triggers)

set(CPACK_COMPONENT_HOST_DESCRIPTION "web program of a device, but for its pages
${about}
A CGI program that calls this library has sessions, forms, settings that are
saved in an SQLite database, and the headers that keep pages safe.\n")
set(CPACK_DEBIAN_HOST_PACKAGE_SECTION "libs\n${beside}")
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA ${orv_packages}/host/shlibs ${orv_packages}/host/symbols
    ${orv_packages}/triggers)

set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "interpreter for page templates, development files
${about}
The headers, the static libraries, files for pkg-config and CMake, the manual
pages orvinterpreter(3) and orvhost(3), small hosts and a whole web program
as examples.\n")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library host)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION "libdevel\n${beside}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS
    "cmake, libcrypt-dev, libfcgi-dev, libmicrohttpd-dev, libsqlite3-dev, ${orv_package_documentation}")

set(CPACK_COMPONENT_TOOLS_DESCRIPTION "programs around page templates of a device's web program
${about}
orv-render makes a page, orv-check finds mistakes in a whole site, orv-preview
shows pages in the browser while they are written, and orv-textdb makes text
databases of translators' files.\n")
set(CPACK_COMPONENT_TOOLS_DEPENDS library)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION "web\n${for_all}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "lighttpd, ${orv_package_documentation}")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION "interpreter for page templates, documents
${about}
The template language, checking, translating, embedding and what is to be
known on a device; and what makes editors know templates.\n")
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION "doc\n${for_all}")
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)

# For cpack.cmake.
set(CPACK_PROJECT_CONFIG_FILE ${orv_packaging}/cpack.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${orv_packaging}/unscript.cmake)
set(CPACK_ORV_DOCS ${ORV_DOCS})
set(CPACK_ORV_DPKG_ADMIN ${ORV_DPKG_ADMIN})
set(CPACK_ORV_DPKG_LIBRARIES ${ORV_DPKG_LIBRARIES})
set(CPACK_ORV_LIBRARY ${PROJECT_BINARY_DIR}/liborvinterpreter.so.${PROJECT_VERSION})
set(CPACK_ORV_HOST ${PROJECT_BINARY_DIR}/host/liborvhost.so.${PROJECT_VERSION})
set(CPACK_ORV_PACKAGES ${orv_packages})
set(CPACK_ORV_SOVERSION ${PROJECT_VERSION_MAJOR})
set(CPACK_ORV_SYMBOLS ${orv_packaging}/symbols)
set(CPACK_ORV_HOST_SYMBOLS ${orv_packaging}/host-symbols)
if(CMAKE_SOURCE_DIR STREQUAL PROJECT_SOURCE_DIR)  # as a part of another, it is not what is packed
    include(CPack)
endif()
