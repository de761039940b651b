# A tool chain that devkit/board/toolchain made: SYSMGR_MACHINE and SYSMGR_TOOLCHAIN are its arguments.
# Programs find the C library where SYSMGR_RUNTIME says: below the build folder, so that the sandbox needs
# no more than that folder to run them.
set(SYSMGR_MACHINE "" CACHE STRING "arm or powerpc")
set(SYSMGR_TOOLCHAIN "" CACHE PATH "the tool chain's folder")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SYSMGR_MACHINE SYSMGR_TOOLCHAIN)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${SYSMGR_MACHINE})
set(CMAKE_C_COMPILER ${SYSMGR_TOOLCHAIN}/bin/board-gcc)
set(CMAKE_CXX_COMPILER ${SYSMGR_TOOLCHAIN}/bin/board-g++)
if(SYSMGR_MACHINE STREQUAL "arm")
  set(CMAKE_SYSROOT ${SYSMGR_TOOLCHAIN}/sysroot)
  set(CMAKE_CXX_FLAGS_INIT "-mthumb -Wno-psabi") # small code; and all of it is built by one compiler
  set(loader ld-uClibc.so.1)
else()
  set(CMAKE_FIND_ROOT_PATH ${SYSMGR_TOOLCHAIN}/sysroot /usr/powerpc-linux-gnu)
  # Position-independent code of this machine keeps a table of addresses a file, and so all that a file names.
  set(CMAKE_CXX_FLAGS_INIT "-fno-pie -isystem ${SYSMGR_TOOLCHAIN}/sysroot/usr/include")
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-no-pie -L${SYSMGR_TOOLCHAIN}/sysroot/usr/lib")
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--disable-new-dtags") # the path is for what libraries need, too
  set(loader ld.so.1)
endif()
if(SYSMGR_RUNTIME)
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,--dynamic-linker=${SYSMGR_RUNTIME}/${loader}")
  set(CMAKE_BUILD_RPATH ${SYSMGR_RUNTIME})
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
