# This machine's processor with the C library musl (Debian's musl-tools), made small for a
# device. musl-gcc compiles C alone; g++ is told its settings. Of C++ the library needs
# only headers that stand on their own, so those of g++ serve, once they are told that
# this is not the C library that they were set up for.
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)
execute_process(COMMAND g++ -print-multiarch OUTPUT_VARIABLE orv_machine
                OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE orv_compiler
                OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REPLACE gnu musl orv_musl ${orv_machine})
set(CMAKE_CXX_FLAGS_INIT "-isystem /usr/include/c++/${orv_compiler} \
-isystem /usr/include/${orv_machine}/c++/${orv_compiler} \
-specs /usr/lib/${orv_musl}/musl-gcc.specs \"-D__GLIBC_PREREQ(major,minor)=0\"")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)  # there is no C++ runtime to link
set(CMAKE_BUILD_TYPE MinSizeRel CACHE STRING "")
