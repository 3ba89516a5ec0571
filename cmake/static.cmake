# The static library: one object, in which only the names for web programs are left to
# be linked with, so that no name of the library meets one of the program's own.
# Beside the shared library it is made of that one's objects.
if(BUILD_SHARED_LIBS)
    set(orv_archive orvinterpreter_static)
    set(orv_objects orvinterpreter)
else()
    set(orv_archive orvinterpreter)
    set(orv_objects orvinterpreter_objects)
    orv_library(${orv_objects} OBJECT)
    set_target_properties(${orv_objects} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endif()
orv_hide_names(${orv_objects} ${CMAKE_C_COMPILER} "Orv_Interpreter_*" systemRoot)
add_library(${orv_archive} STATIC ${orv_hidden})
set_target_properties(${orv_archive} PROPERTIES LINKER_LANGUAGE C OUTPUT_NAME orvinterpreter)
target_include_directories(${orv_archive}
    INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
              $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
