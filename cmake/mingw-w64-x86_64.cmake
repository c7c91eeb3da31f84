# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 (the posix thread model, which
# std::thread and std::mutex need). The programs built here run under Wine on the build machine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KIV_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KIV_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KIV_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KIV_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KIV_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs run through Wine (wine64 directly when the wrapper is not there).
if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  find_program(KIV_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
  if(KIV_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${KIV_WINE})
  endif()
endif()
