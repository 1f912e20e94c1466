# Cross-compiles for 64-bit Windows with the posix-thread variant of mingw-w64 (std::thread needs it).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(SENTREL_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${SENTREL_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${SENTREL_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${SENTREL_MINGW_PREFIX}-windres)
set(SENTREL_WIDL ${SENTREL_MINGW_PREFIX}-widl)

set(CMAKE_FIND_ROOT_PATH /usr/${SENTREL_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# No mingw runtime DLL may be needed at run time: link libgcc, libstdc++ and winpthread statically.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

# Tests run under Wine in a private prefix inside the build tree.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh)
