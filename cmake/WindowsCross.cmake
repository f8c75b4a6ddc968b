# Builds for Windows with Debian's mingw-w64, and runs what it builds under Wine.
set(ZV_MACHINE wine)
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)
# Windows 10: thread descriptions, waits on addresses. The programs contain the compiler's libraries.
add_compile_definitions(_WIN32_WINNT=0x0A00)
add_link_options(-static)
