# 32-bit ARM with hardware floating point, as the cameras have. SENVO_SYSROOT, in the environment when a build is prepared
# first, names a platform kit's folder to build against, CC and CXX then the kit's compilers; without it that is the
# folder that platform/camera/sysroot makes, and Debian's cross compilers.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

if(NOT SENVO_SYSROOT)
  set(sysroot ${CMAKE_CURRENT_LIST_DIR}/../../build/armhf)
  set(c_compiler arm-linux-gnueabihf-gcc)
  set(cxx_compiler arm-linux-gnueabihf-g++)
  if(DEFINED ENV{SENVO_SYSROOT})
    set(sysroot $ENV{SENVO_SYSROOT})
    # A kit's compilers may come with arguments.
    if(DEFINED ENV{CC})
      separate_arguments(c_compiler UNIX_COMMAND "$ENV{CC}")
    endif()
    if(DEFINED ENV{CXX})
      separate_arguments(cxx_compiler UNIX_COMMAND "$ENV{CXX}")
    endif()
  endif()
  get_filename_component(sysroot ${sysroot} ABSOLUTE)
  if(NOT IS_DIRECTORY ${sysroot}/usr)
    message(FATAL_ERROR "expected a folder to build against in ${sysroot}, found none: SENVO_SYSROOT names a platform "
      "kit's; platform/camera/sysroot makes one of Debian's packages, as ./senvo test --arm does")
  endif()
  # Kept, so that preparing the build again takes the same.
  set(SENVO_SYSROOT ${sysroot} CACHE PATH "What is built against")
  set(SENVO_C_COMPILER ${c_compiler} CACHE STRING "The C compiler for it")
  set(SENVO_CXX_COMPILER ${cxx_compiler} CACHE STRING "The C++ compiler for it")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SENVO_SYSROOT SENVO_C_COMPILER SENVO_CXX_COMPILER)
set(CMAKE_SYSROOT ${SENVO_SYSROOT})
set(CMAKE_C_COMPILER ${SENVO_C_COMPILER})
set(CMAKE_CXX_COMPILER ${SENVO_CXX_COMPILER})

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
