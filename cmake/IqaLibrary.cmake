# libiqa.so: one set of objects, built with hidden visibility and without floating-point
# contraction (the SSIM and NV12 arithmetic must round every product), linked into the shared
# library that hosts load and into a static archive through which the tests reach internals.
find_package(Threads REQUIRED)

# Internal headers are included by their path from the top of the tree ("upload/PhotoTrailer.h"),
# so every file shows which part it depends on; exported headers by their name alone.
set(IQA_INTERNAL_INCLUDES ${PROJECT_SOURCE_DIR})

# What the host tools share with the library, so that they read, recover and score photos
# exactly as it does: the photo file formats, file calls, the dump's journal, the box reduction
# and the block SSIM.
add_library(iqa_core STATIC
  common/FileCalls.cpp
  common/ByteSource.cpp
  common/JpegStream.cpp
  common/MultiPicture.cpp
  upload/PhotoTrailer.cpp
  upload/PhotoLayout.cpp
  upload/DumpJournal.cpp
  process/BoxReduce.cpp
  process/BlockSsim.cpp
)
set_target_properties(iqa_core PROPERTIES
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON
  POSITION_INDEPENDENT_CODE ON)
target_include_directories(iqa_core PUBLIC ${IQA_INTERNAL_INCLUDES})
target_compile_options(iqa_core PRIVATE -ffp-contract=off)
target_link_libraries(iqa_core PUBLIC iqa_android_log PRIVATE iqa_warnings)

add_library(iqa_objects OBJECT
  process/IqaProcessNode.cpp
  process/IqaCompSim.cpp
  process/IqaProcessData.cpp
  process/ThumbnailDecoder.cpp
  process/JpegDecoder.cpp
  process/JpegFileSource.cpp
  process/Nv12.cpp
  process/RunBuffer.cpp
  process/ReducingRowSink.cpp
  taskmanager/IqaTaskManager.cpp
  taskmanager/TaskRegistry.cpp
  taskmanager/BatchRun.cpp
  taskmanager/Reply.cpp
  taskmanager/FileUtils.cpp
  upload/IqaUpLoad.cpp
  anomdetect/IqaAnomDetect.cpp
  anomdetect/ScreenSampler.cpp
)
set_target_properties(iqa_objects PROPERTIES
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_compile_options(iqa_objects PRIVATE -ffp-contract=off)
# The pixel kernels are written to vectorise; GCC does so at -O2 only with its full cost model,
# and the tests (at -O2) must exercise the vector code the phones run.
set_source_files_properties(process/BoxReduce.cpp process/ThumbnailDecoder.cpp
  process/BlockSsim.cpp process/Nv12.cpp PROPERTIES COMPILE_OPTIONS
  "$<$<CXX_COMPILER_ID:GNU>:-ftree-vectorize;-fvect-cost-model=dynamic>")
target_include_directories(iqa_objects
  PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  PRIVATE ${IQA_INTERNAL_INCLUDES})
target_link_libraries(iqa_objects
  PUBLIC JPEG::JPEG iqa_safec iqa_android_log Threads::Threads mcs iqa_core
  PRIVATE iqa_warnings)

add_library(iqa SHARED $<TARGET_OBJECTS:iqa_objects>)
add_library(iqa::iqa ALIAS iqa)
set_target_properties(iqa PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(iqa PUBLIC
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/iqa>)
target_link_libraries(iqa PUBLIC mcs
  PRIVATE $<BUILD_INTERFACE:iqa_core> JPEG::JPEG iqa_safec iqa_android_log Threads::Threads)
if(NOT IQA_SANITIZE)  # sanitizer runtimes come with the executable, not the library
  target_link_options(iqa PRIVATE "LINKER:--no-undefined")
endif()

# Tests only: the same objects, with the internal headers visible.
add_library(iqa_static STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:iqa_objects>)
target_include_directories(iqa_static PUBLIC include ${IQA_INTERNAL_INCLUDES})
target_link_libraries(iqa_static PUBLIC iqa_core JPEG::JPEG iqa_safec iqa_android_log
                      Threads::Threads mcs)
