# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 tool chain (posix
# threads, for std::thread and std::mutex). OpenSSL and gSOAP's run-time come
# from scripts/windows-deps.sh, in LEXCTL_WINDOWS_DEPS (default: the prefix
# under build-windows).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(_host x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${_host}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_host}-g++-posix)
set(CMAKE_RC_COMPILER ${_host}-windres)

if(DEFINED ENV{LEXCTL_WINDOWS_DEPS})
  set(LEXCTL_WINDOWS_PREFIX $ENV{LEXCTL_WINDOWS_DEPS}/prefix)
else()
  get_filename_component(LEXCTL_WINDOWS_PREFIX ${CMAKE_CURRENT_LIST_DIR}/../build-windows/deps/prefix ABSOLUTE)
endif()

set(CMAKE_FIND_ROOT_PATH /usr/${_host} ${LEXCTL_WINDOWS_PREFIX})
# Build tools (soapcpp2) are the Linux ones; libraries and headers only the target's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config sees only the target's packages, never the Linux ones.
set(ENV{PKG_CONFIG_LIBDIR} ${LEXCTL_WINDOWS_PREFIX}/lib/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
set(OPENSSL_ROOT_DIR ${LEXCTL_WINDOWS_PREFIX})
# Static zlib, so that no DLL has to travel with the programs.
set(ZLIB_LIBRARY /usr/${_host}/lib/libz.a CACHE FILEPATH "static zlib")
set(ZLIB_INCLUDE_DIR /usr/${_host}/include CACHE PATH "zlib headers")

# Debian's wine64 package puts its loader outside PATH.
find_program(LEXCTL_WINE NAMES wine64 wine PATHS /usr/lib/wine)
# Tests and test discovery run the programs under Wine, headless, quiet, in a
# prefix of the build folder's own; the C locale gives them code page 1252.
if(LEXCTL_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR env WINEPREFIX=${CMAKE_BINARY_DIR}/wine-prefix WINEDEBUG=-all
      DISPLAY= LC_ALL=C.UTF-8 ${LEXCTL_WINE})
endif()
