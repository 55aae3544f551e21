# Cross-compiles for 64-bit ARM Linux (the phones' CPU) with Debian's cross compiler and its
# arm64 multiarch libraries, and runs what it builds (tests, test discovery, the iqa tool)
# under qemu-aarch64. The emulator's library prefix is /, so the arm64 loader and C library
# come from the same Debian packages; another prefix mixes two glibc builds, and a program that
# starts a thread then hangs in pthread_create.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)

# Packages found through pkg-config describe the arm64 libraries, not the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
