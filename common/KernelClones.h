// Pixel kernels that are also built for AVX2 on x86-64, with the version chosen when the library
// is loaded (the baseline one on older CPUs). Not under ThreadSanitizer: the choice runs while
// relocations are processed, before its runtime is up. Other targets vectorise the one version
// (NEON is part of arm64).
#ifndef IQA_COMMON_KERNEL_CLONES_H
#define IQA_COMMON_KERNEL_CLONES_H

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define IQA_THREAD_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define IQA_THREAD_SANITIZER 1
#endif

#if defined(__x86_64__) && !defined(__ANDROID__) && !defined(IQA_THREAD_SANITIZER)
#define IQA_KERNEL_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define IQA_KERNEL_CLONES
#endif

#endif  // IQA_COMMON_KERNEL_CLONES_H
