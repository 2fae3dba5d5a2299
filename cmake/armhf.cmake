# Cross-builds for 32-bit ARM with Debian's compiler, against Debian's armhf packages in a directory
# of our own; what is built runs under QEMU's user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

cmake_path(SET armhf_sysroot NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot)
get_property(within_a_check GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT within_a_check)
  execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/armhf-sysroot.sh ${armhf_sysroot}
    COMMAND_ERROR_IS_FATAL ANY)
endif()

# Programs are the host's; nothing else is.
set(CMAKE_FIND_ROOT_PATH ${armhf_sysroot} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${armhf_sysroot}/usr/lib/arm-linux-gnueabihf/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${armhf_sysroot})

# GCC notes at each use of some types that GCC 7 changed how they are passed: all of ours is newer.
# The second directory has the headers that depend on the machine (some of OpenSSL's).
set(CMAKE_CXX_FLAGS_INIT
  "-Wno-psabi -isystem ${armhf_sysroot}/usr/include/${CMAKE_LIBRARY_ARCHITECTURE}")

# The libraries that our libraries need, for the linker and for the emulated programs.
set(armhf_libraries
  ${armhf_sysroot}/usr/lib/arm-linux-gnueabihf:${armhf_sysroot}/lib/arm-linux-gnueabihf)
foreach(kind IN ITEMS EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT -Wl,-rpath-link,${armhf_libraries})
endforeach()
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-arm-static -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH=${armhf_libraries})
