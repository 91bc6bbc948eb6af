# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 (POSIX threads, which std::thread needs).
# CORVANE_TARGET_PREFIX lists the folders with the target's libraries, CORVANE_WINE runs the results.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
# It writes the time into a type library, for which the same files would differ from build to build.
set(CORVANE_WIDL "${CMAKE_COMMAND}" -E env TZ=UTC faketime -f "@2000-01-01 00:00:00" x86_64-w64-mingw32-widl)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 $ENV{CORVANE_TARGET_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

if(DEFINED ENV{CORVANE_WINE})
  set(CMAKE_CROSSCOMPILING_EMULATOR "$ENV{CORVANE_WINE}")
endif()
