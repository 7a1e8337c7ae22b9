# 32-bit ARM with hardware floating point, as the cameras have. SENVO_SYSROOT, in the environment, names the folder to
# build against: a platform kit's, or the one that platform/camera/sysroot makes. CC and CXX name the kit's compilers.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

if(DEFINED ENV{SENVO_SYSROOT})
  set(CMAKE_SYSROOT $ENV{SENVO_SYSROOT})
else()
  get_filename_component(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/armhf ABSOLUTE)
endif()
if(NOT DEFINED ENV{CC})
  set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
endif()
if(NOT DEFINED ENV{CXX})
  set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# Programs for the camera run here all the same.
find_program(QEMU_ARM qemu-arm)
if(QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_ARM};-L;${CMAKE_SYSROOT})
endif()
