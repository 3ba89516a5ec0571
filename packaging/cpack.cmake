# packaging/cpack.cmake - run by cpack before it packs: refuses a build that packages
# cannot be made of, and asks Debian's tools what the library offers and needs.
if(NOT CPACK_GENERATOR STREQUAL DEB)
    return()
endif()
if(NOT CPACK_ORV_DOCS OR NOT CPACK_PACKAGING_INSTALL_PREFIX STREQUAL "/usr"
   OR NOT EXISTS "${CPACK_ORV_LIBRARY}")
    message(FATAL_ERROR "Packages are made of a build with -DCMAKE_INSTALL_PREFIX=/usr -DORV_DOCS=ON "
                        "and the shared library; packaging/packages.sh makes one.")
endif()

# orv_package(COMPONENT LIBRARY SYMBOLS FOLDER) - a library's symbols and shlibs, made in FOLDER,
# and what it needs. Not by cpack itself, which would add scripts that run ldconfig.
macro(orv_package component library symbols folder)
    set(name ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
    get_filename_component(soname ${library} NAME)
    string(REGEX REPLACE "\\.so.*" "" soname ${soname})
    file(MAKE_DIRECTORY ${folder})
    # A name that is gone, and one that the list does not have, is an error.
    execute_process(COMMAND dpkg-gensymbols -p${name} -v${CPACK_PACKAGE_VERSION} -c4
        -I${symbols} -e${library} -O${folder}/symbols COMMAND_ERROR_IS_FATAL ANY)
    file(WRITE ${folder}/shlibs
        "${soname} ${CPACK_ORV_SOVERSION} ${name} (>= ${CPACK_PACKAGE_VERSION})\n")
    # The tool warns that the library is not in a package's folder.
    execute_process(COMMAND dpkg-shlibdeps -O -L${CPACK_ORV_PACKAGES}/shlibs
        -l${CPACK_ORV_PACKAGES}/.. ${foreign} ${library}
        WORKING_DIRECTORY ${CPACK_ORV_PACKAGES} OUTPUT_VARIABLE depends ERROR_VARIABLE said
        RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${said}")
    endif()
    string(REPLACE "shlibs:Depends=" "" CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "${depends}")
endmacro()

set(foreign)
if(CPACK_ORV_DPKG_ADMIN)
    set(foreign --admindir=${CPACK_ORV_DPKG_ADMIN})
    foreach(folder lib usr/lib)
        list(APPEND foreign -l${CPACK_ORV_DPKG_LIBRARIES}/${folder}/arm-linux-gnueabihf)
    endforeach()
endif()
file(WRITE ${CPACK_ORV_PACKAGES}/triggers "activate-noawait ldconfig\n")
file(WRITE ${CPACK_ORV_PACKAGES}/debian/control "")
orv_package(LIBRARY ${CPACK_ORV_LIBRARY} ${CPACK_ORV_SYMBOLS} ${CPACK_ORV_PACKAGES})
orv_package(HOST ${CPACK_ORV_HOST} ${CPACK_ORV_HOST_SYMBOLS} ${CPACK_ORV_PACKAGES}/host)

# Each package's description begins with its own summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY)
