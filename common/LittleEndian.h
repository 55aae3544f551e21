// Little-endian integers in bytes, as every file the library reads or writes stores them: the
// raw thumbnail's header, the photo trailer and the dump journal.
#ifndef IQA_COMMON_LITTLE_ENDIAN_H
#define IQA_COMMON_LITTLE_ENDIAN_H

#include <cstddef>
#include <cstdint>

namespace IQA {

// The sizeof(T) bytes at p, lowest first; no byte beside them is read.
template <typename T>
inline T LoadLittleEndian(const unsigned char* p) {
    T value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) {
        value = static_cast<T>(value | static_cast<T>(p[i]) << (8 * i));
    }
    return value;
}

template <typename T>
inline void StoreLittleEndian(unsigned char* p, T value) {
    for (size_t i = 0; i < sizeof(T); ++i) {
        p[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

inline uint32_t LoadLE32(const unsigned char* p) {
    return LoadLittleEndian<uint32_t>(p);
}

inline uint64_t LoadLE64(const unsigned char* p) {
    return LoadLittleEndian<uint64_t>(p);
}

inline void StoreLE32(unsigned char* p, uint32_t value) {
    StoreLittleEndian(p, value);
}

inline void StoreLE64(unsigned char* p, uint64_t value) {
    StoreLittleEndian(p, value);
}

}  // namespace IQA

#endif  // IQA_COMMON_LITTLE_ENDIAN_H
