# Imported targets for the library's dependencies: libjpeg 62 (JPEG::JPEG), the secure C library
# (iqa_safec) and the Android log (iqa_android_log).
#
# On Android (CMAKE_SYSTEM_NAME Android, as the NDK's toolchain file sets it) the log is the
# NDK's liblog, and libjpeg and the secure C library are the host project's builds for the
# target ABI: they are looked for under IQA_ANDROID_DEPENDENCIES/<ANDROID_ABI> (include/, lib/)
# when that is given, and in the NDK's sysroot and the usual search paths otherwise. Elsewhere
# all three come from the system (Debian's packages, or their multiarch builds for a cross build).
set(IQA_ANDROID_DEPENDENCIES "" CACHE PATH
    "Android only: a folder with <ANDROID_ABI>/include and <ANDROID_ABI>/lib of libjpeg and safec")

add_library(iqa_android_log INTERFACE)
add_library(iqa_safec INTERFACE)
if(ANDROID)
  if(IQA_ANDROID_DEPENDENCIES)
    list(APPEND CMAKE_FIND_ROOT_PATH "${IQA_ANDROID_DEPENDENCIES}/${ANDROID_ABI}")
    list(APPEND CMAKE_PREFIX_PATH "${IQA_ANDROID_DEPENDENCIES}/${ANDROID_ABI}")
  endif()
  find_package(JPEG REQUIRED)
  find_path(IQA_SAFEC_INCLUDE safe_mem_lib.h PATH_SUFFIXES safeclib REQUIRED)
  find_library(IQA_SAFEC_LIBRARY safec REQUIRED)
  target_include_directories(iqa_safec SYSTEM INTERFACE ${IQA_SAFEC_INCLUDE})
  target_link_libraries(iqa_safec INTERFACE ${IQA_SAFEC_LIBRARY})
  find_library(IQA_ANDROID_LOG_LIBRARY log REQUIRED)
  target_link_libraries(iqa_android_log INTERFACE ${IQA_ANDROID_LOG_LIBRARY})
else()
  find_package(PkgConfig REQUIRED)
  find_package(JPEG REQUIRED)
  pkg_check_modules(SAFEC REQUIRED IMPORTED_TARGET libsafec)
  target_link_libraries(iqa_safec INTERFACE PkgConfig::SAFEC)
  find_path(IQA_ANDROID_LOG_INCLUDE android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
  find_library(IQA_ANDROID_LOG_LIBRARY log
               PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
  get_filename_component(IQA_ANDROID_LOG_DIR ${IQA_ANDROID_LOG_LIBRARY} DIRECTORY)
  target_include_directories(iqa_android_log SYSTEM INTERFACE ${IQA_ANDROID_LOG_INCLUDE})
  target_link_libraries(iqa_android_log INTERFACE ${IQA_ANDROID_LOG_LIBRARY})
  # The library sits outside the loader's default path.
  target_link_options(iqa_android_log INTERFACE "LINKER:-rpath,${IQA_ANDROID_LOG_DIR}")
endif()
