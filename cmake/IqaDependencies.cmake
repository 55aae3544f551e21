# Imported targets for the library's dependencies: libjpeg 62, the secure C library and the
# Android log (the NDK's on Android, Debian's android-liblog elsewhere).
find_package(PkgConfig REQUIRED)
find_package(JPEG REQUIRED)
pkg_check_modules(SAFEC REQUIRED IMPORTED_TARGET libsafec)

add_library(iqa_android_log INTERFACE)
if(ANDROID)
  find_library(IQA_ANDROID_LOG_LIBRARY log REQUIRED)
  target_link_libraries(iqa_android_log INTERFACE ${IQA_ANDROID_LOG_LIBRARY})
else()
  find_path(IQA_ANDROID_LOG_INCLUDE android/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
  find_library(IQA_ANDROID_LOG_LIBRARY log
               PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
  get_filename_component(IQA_ANDROID_LOG_DIR ${IQA_ANDROID_LOG_LIBRARY} DIRECTORY)
  target_include_directories(iqa_android_log SYSTEM INTERFACE ${IQA_ANDROID_LOG_INCLUDE})
  target_link_libraries(iqa_android_log INTERFACE ${IQA_ANDROID_LOG_LIBRARY})
  # The library sits outside the loader's default path.
  target_link_options(iqa_android_log INTERFACE "LINKER:-rpath,${IQA_ANDROID_LOG_DIR}")
endif()
