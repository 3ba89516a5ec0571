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

set(name ${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME})
# A name that is gone, and one that the list does not have, is an error.
execute_process(COMMAND dpkg-gensymbols -p${name} -v${CPACK_PACKAGE_VERSION} -c4
    -I${CPACK_ORV_SYMBOLS} -e${CPACK_ORV_LIBRARY} -O${CPACK_ORV_PACKAGES}/symbols
    COMMAND_ERROR_IS_FATAL ANY)
file(WRITE ${CPACK_ORV_PACKAGES}/shlibs
    "liborvinterpreter ${CPACK_ORV_SOVERSION} ${name} (>= ${CPACK_PACKAGE_VERSION})\n")
file(WRITE ${CPACK_ORV_PACKAGES}/triggers "activate-noawait ldconfig\n")

# Not by cpack itself, which would add scripts that run ldconfig. The tool warns that the
# library is not in a package's folder.
file(WRITE ${CPACK_ORV_PACKAGES}/debian/control "")
execute_process(COMMAND dpkg-shlibdeps -O ${CPACK_ORV_LIBRARY}
    WORKING_DIRECTORY ${CPACK_ORV_PACKAGES} OUTPUT_VARIABLE depends ERROR_VARIABLE said
    RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "${said}")
endif()
string(REPLACE "shlibs:Depends=" "" CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "${depends}")

# Each package's description begins with its own summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY)
