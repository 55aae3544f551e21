// Symbol visibility for the library's exported surface; everything else is hidden.
#ifndef IQA_EXPORT_H
#define IQA_EXPORT_H

#if defined(_WIN32)
#define IQA_EXPORT
#define IQA_HIDDEN
#else
#define IQA_EXPORT __attribute__((visibility("default")))
// Private helpers of an exported class stay out of the library's interface.
#define IQA_HIDDEN __attribute__((visibility("hidden")))
#endif

#endif  // IQA_EXPORT_H
