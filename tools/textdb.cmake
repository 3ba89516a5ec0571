# orv-textdb, the translators' tool: gettext PO files to text databases and back.
find_path(GETTEXTPO_INCLUDE_DIR gettext-po.h)
find_library(GETTEXTPO_LIBRARY gettextpo)
if(NOT GETTEXTPO_INCLUDE_DIR OR NOT GETTEXTPO_LIBRARY)
    message(FATAL_ERROR "orv-textdb needs libgettextpo and its header gettext-po.h")
endif()

add_executable(orv-textdb
    ${CMAKE_CURRENT_LIST_DIR}/orv-textdb.cpp
    ${CMAKE_CURRENT_LIST_DIR}/textdb_file.cpp)
target_compile_features(orv-textdb PRIVATE cxx_std_20)
target_compile_definitions(orv-textdb PRIVATE ORV_VERSION="${PROJECT_VERSION}")
target_include_directories(orv-textdb SYSTEM PRIVATE ${GETTEXTPO_INCLUDE_DIR})
target_link_libraries(orv-textdb PRIVATE orv_warnings ${GETTEXTPO_LIBRARY})
include(GNUInstallDirs)
install(TARGETS orv-textdb RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
