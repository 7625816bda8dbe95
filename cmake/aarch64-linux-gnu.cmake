# Cross build for 64-bit ARM Linux with Debian's aarch64-linux-gnu toolchain and the
# :arm64 development packages installed beside the host's (multiarch). Programs built
# here run under qemu-aarch64, so ctest and the test discovery work on an x86-64 host.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(AUDIOMW_CROSS_TRIPLET aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${AUDIOMW_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${AUDIOMW_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${AUDIOMW_CROSS_TRIPLET})

# Libraries and headers come from the cross toolchain's root and from the multiarch
# paths under /usr (found through CMAKE_LIBRARY_ARCHITECTURE); programs (sox, bash)
# are the host's.
set(CMAKE_FIND_ROOT_PATH /usr/${AUDIOMW_CROSS_TRIPLET} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config answers for the arm64 packages only.
find_program(PKG_CONFIG_EXECUTABLE NAMES ${AUDIOMW_CROSS_TRIPLET}-pkg-config)

# Programs run with the arm64 loader and libraries of the multiarch packages
# (libc6:arm64 and the rest under /lib/aarch64-linux-gnu). Not the cross toolchain's
# /usr/aarch64-linux-gnu: its loader is a different build of glibc than the multiarch
# libc.so.6 the loader then finds, and the pair hangs at the first thread.
find_program(AUDIOMW_QEMU NAMES qemu-aarch64 qemu-aarch64-static REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${AUDIOMW_QEMU} -L /)
