# Cross-compiling for 64-bit Windows with Debian's MinGW-w64 (the "posix"
# thread model, g++-mingw-w64-x86-64-posix), from a Linux host. The programs
# the build runs on its own outputs (the territory generator, keltzc) are
# built for the host in a sub-build; see cmake/KelHostTools.cmake.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KEL_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KEL_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KEL_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KEL_MINGW_PREFIX}-windres)

# Headers and libraries of the target only from the MinGW tree; programs
# (bison, python3) from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${KEL_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test executables run under Wine.
find_program(KEL_WINE NAMES wine64 wine)
if(KEL_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KEL_WINE})
endif()

# The MinGW runtime (libgcc, libstdc++, winpthreads) goes into each DLL and
# program rather than beside them: what the build makes runs anywhere,
# under Wine too, without copying the cross compiler's DLLs around. Nothing
# C++ crosses the libraries' C interface, so each may keep its own copy.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# Tells CMakeLists.txt that Windows is built the supported way.
set(KEL_MINGW_TOOLCHAIN ON)
