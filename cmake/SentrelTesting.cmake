# GoogleTest: Debian's libgtest-dev natively; for Windows, built from Debian's googletest sources.
if(CMAKE_CROSSCOMPILING)
    set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
else()
    find_package(GTest REQUIRED)
endif()

# Windows test programs and their helpers link this, so that a crash fails the run.
if(CMAKE_CROSSCOMPILING AND NOT TARGET sentrel_crash_exit)
    add_library(sentrel_crash_exit OBJECT ${PROJECT_SOURCE_DIR}/tests/win/crash_exit.cpp)
    target_compile_options(sentrel_crash_exit PRIVATE ${SENTREL_WARNINGS})
endif()

# Adds a test that runs a target; under cross-compiling ctest prefixes the emulator, and every such
# test uses the private Wine prefix, which a fixture creates first and shuts down last.
function(sentrel_add_test name target)
    add_test(NAME ${name} COMMAND ${target} ${ARGN})
    if(CMAKE_CROSSCOMPILING)
        target_link_libraries(${target} PRIVATE sentrel_crash_exit)
        set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine_prefix)
    endif()
endfunction()

if(CMAKE_CROSSCOMPILING AND NOT TEST wine_prefix_start)
    set(SENTREL_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
    add_test(NAME wine_prefix_start COMMAND ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh --start)
    add_test(NAME wine_prefix_stop
             COMMAND sh -c "WINEPREFIX=${SENTREL_WINEPREFIX} wineserver -k || true")
    set_tests_properties(wine_prefix_start PROPERTIES FIXTURES_SETUP wine_prefix
                         ENVIRONMENT SENTREL_WINEPREFIX=${SENTREL_WINEPREFIX})
    set_tests_properties(wine_prefix_stop PROPERTIES FIXTURES_CLEANUP wine_prefix)
endif()
