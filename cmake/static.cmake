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
# Tables that several sources share are merged by name: unique, they could not be hidden.
target_compile_options(${orv_objects} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)

set(orv_object ${CMAKE_CURRENT_BINARY_DIR}/orvinterpreter.o)
separate_arguments(orv_link_flags NATIVE_COMMAND
    "${CMAKE_C_FLAGS} ${CMAKE_C_FLAGS_MINSIZEREL}")
# Names can be hidden in machine code alone. GCC optimizes across the sources and makes such
# code, for any linker; other compilers are told to make it at once, whatever flags say.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    string(TOUPPER "${CMAKE_BUILD_TYPE}" orv_type)
    if(CMAKE_INTERPROCEDURAL_OPTIMIZATION OR
       "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${orv_type}}" MATCHES "(^| )-flto")
        list(APPEND orv_link_flags -flto -flinker-output=nolto-rel -fPIC -fno-gnu-unique)
    endif()
else()
    target_compile_options(${orv_objects} PRIVATE -fno-lto)
    set_target_properties(${orv_objects} PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
    list(APPEND orv_link_flags -fno-lto)
endif()
add_custom_command(OUTPUT ${orv_object}
    COMMAND ${CMAKE_C_COMPILER} ${orv_link_flags} -r -nostdlib -o ${orv_object}
            $<TARGET_OBJECTS:${orv_objects}>
    COMMAND ${CMAKE_OBJCOPY} --wildcard --keep-global-symbol=Orv_Interpreter_*
            --keep-global-symbol=systemRoot ${orv_object}
    DEPENDS ${orv_objects} $<TARGET_OBJECTS:${orv_objects}>
    COMMAND_EXPAND_LISTS VERBATIM)
add_library(${orv_archive} STATIC ${orv_object})
set_target_properties(${orv_archive} PROPERTIES LINKER_LANGUAGE C OUTPUT_NAME orvinterpreter)
target_include_directories(${orv_archive}
    INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
              $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
