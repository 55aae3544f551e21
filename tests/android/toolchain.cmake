# Stands in for the NDK's toolchain file in a configure-only test: it sets what that file sets
# and this project looks at (the system name Android, ANDROID, ANDROID_ABI, a sysroot to search
# in), with the build machine's compiler, which configuring needs to run and nothing more.
set(CMAKE_SYSTEM_NAME Android)
set(CMAKE_SYSTEM_VERSION 1)  # as the NDK's own file sets it: CMake then leaves Android to it
set(ANDROID TRUE)
set(ANDROID_PLATFORM android-29)
set(CMAKE_FIND_ROOT_PATH "${IQA_STUB_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
