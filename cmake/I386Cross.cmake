# Builds for i386 with Debian's cross compiler. The kernel of an x86-64 machine runs the programs, with the libraries of
# the compiler.
set(ZV_MACHINE i386)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(zv_sysroot /usr/i686-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${zv_sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
add_link_options(LINKER:--dynamic-linker=${zv_sysroot}/lib/ld-linux.so.2 LINKER:-rpath=${zv_sysroot}/lib)
