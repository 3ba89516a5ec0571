# What of the library is installed: itself, its header, and how CMake and pkg-config find it.
include(CMakePackageConfigHelpers)

install(TARGETS orvinterpreter EXPORT orvinterpreterTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
                NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET orvinterpreter_static)
    install(TARGETS orvinterpreter_static EXPORT orvinterpreterTargets
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
endif()
install(EXPORT orvinterpreterTargets NAMESPACE orvinterpreter::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvinterpreter)
configure_package_config_file(cmake/orvinterpreterConfig.cmake.in orvinterpreterConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvinterpreter)
write_basic_package_version_file(orvinterpreterConfigVersion.cmake COMPATIBILITY SameMajorVersion)
# Folders below the prefix are told relative to it, so that all can be moved.
set(orv_pc_prefix ${CMAKE_INSTALL_PREFIX})
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    file(RELATIVE_PATH orv_pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    string(PREPEND orv_pc_prefix "\${pcfiledir}/")
endif()
foreach(folder LIBDIR INCLUDEDIR)
    set(orv_pc_${folder} ${CMAKE_INSTALL_${folder}})
    if(NOT IS_ABSOLUTE "${orv_pc_${folder}}")
        string(PREPEND orv_pc_${folder} "\${prefix}/")
    endif()
endforeach()
configure_file(cmake/orvinterpreter.pc.in orvinterpreter.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orvinterpreterConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/orvinterpreterConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/orvinterpreter)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/orvinterpreter.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
