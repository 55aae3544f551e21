// Symbol visibility for the library's exported surface; everything else is hidden.
#ifndef IQA_EXPORT_H
#define IQA_EXPORT_H

#if defined(_WIN32)
#define IQA_EXPORT
#else
#define IQA_EXPORT __attribute__((visibility("default")))
#endif

#endif  // IQA_EXPORT_H
