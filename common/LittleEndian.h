// Little-endian integers in bytes, as every file the library reads or writes stores them: the
// raw thumbnail's header, the photo trailer and the dump journal.
#ifndef IQA_COMMON_LITTLE_ENDIAN_H
#define IQA_COMMON_LITTLE_ENDIAN_H

#include <cstdint>

namespace IQA {

inline uint64_t LoadLittleEndian(const unsigned char* p, int bytes) {
    uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) {
        value = value << 8 | p[i];
    }
    return value;
}

inline uint32_t LoadLE32(const unsigned char* p) {
    return static_cast<uint32_t>(LoadLittleEndian(p, 4));
}

inline uint64_t LoadLE64(const unsigned char* p) {
    return LoadLittleEndian(p, 8);
}

inline void StoreLittleEndian(unsigned char* p, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        p[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

inline void StoreLE32(unsigned char* p, uint32_t value) {
    StoreLittleEndian(p, value, 4);
}

inline void StoreLE64(unsigned char* p, uint64_t value) {
    StoreLittleEndian(p, value, 8);
}

}  // namespace IQA

#endif  // IQA_COMMON_LITTLE_ENDIAN_H
