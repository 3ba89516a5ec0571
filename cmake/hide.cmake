# orv_hide_names(TARGETS LINKER NAME...) - makes one object of those of some targets, in which only
# these names (or patterns) can still be linked with, and sets orv_hidden to its path; it is named
# for the first target. LINKER: the compiler that links it, and options.
function(orv_hide_names targets linker)
    separate_arguments(flags NATIVE_COMMAND "${CMAKE_C_FLAGS} ${CMAKE_C_FLAGS_MINSIZEREL}")
    # Names can be hidden in machine code alone. GCC optimizes across the sources and makes
    # such code, for any linker; other compilers are told to make it at once, whatever flags say.
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        # Tables that several sources share are merged by name: unique, they could not be hidden.
        set(options -fno-gnu-unique)
        string(TOUPPER "${CMAKE_BUILD_TYPE}" type)
        if(CMAKE_INTERPROCEDURAL_OPTIMIZATION OR
           "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${type}}" MATCHES "(^| )-flto")
            list(APPEND flags -flto -flinker-output=nolto-rel -fPIC -fno-gnu-unique)
        endif()
    else()
        set(options -fno-lto)
        set_target_properties(${targets} PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
        list(APPEND flags -fno-lto)
    endif()
    set(objects)
    foreach(target IN LISTS targets)
        list(APPEND objects $<TARGET_OBJECTS:${target}>)
        target_compile_options(${target} PRIVATE ${options})
    endforeach()
    list(GET targets 0 name)
    set(object ${CMAKE_CURRENT_BINARY_DIR}/${name}.o)
    list(TRANSFORM ARGN PREPEND --keep-global-symbol=)
    add_custom_command(OUTPUT ${object}
        COMMAND ${linker} ${flags} -r -nostdlib -o ${object} ${objects}
        COMMAND ${CMAKE_OBJCOPY} --wildcard ${ARGN} ${object}
        DEPENDS ${targets} ${objects}
        COMMAND_EXPAND_LISTS VERBATIM)
    set(orv_hidden ${object} PARENT_SCOPE)
endfunction()
