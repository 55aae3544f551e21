// Picking each output pixel's three bytes out of a row of per-position block totals, where the
// pixel of a k-wide block takes the bytes at 3k x its index: 16 pixels at a time with byte
// shuffles on whole 16-byte vectors (pshufb or tbl), the rest one by one. A generic vector type
// and its shuffle, so the same source serves x86-64 and arm64.
#ifndef IQA_PROCESS_PICK_PIXELS_H
#define IQA_PROCESS_PICK_PIXELS_H

#include <cstring>
#include <utility>

namespace IQA {

namespace pick_pixels {

using Bytes16 = unsigned char __attribute__((vector_size(16)));

// Output byte g of a run of 16 pixels comes from byte Source(g) of their totals.
template <int K>
constexpr int Source(int g) {
    return 3 * K * (g / 3) + g % 3;
}

// Output vector o (of the three that hold 16 pixels) reads the totals from From(o) on; its lane
// j is byte Lane(o, j) of the vectors loaded there, which number Loads(o).
template <int K>
constexpr int From(int o) {
    return Source<K>(16 * o);
}
template <int K>
constexpr int Lane(int o, int j) {
    return Source<K>(16 * o + j) - From<K>(o);
}
template <int K>
constexpr int Loads(int o) {
    return Lane<K>(o, 15) / 16 + 1;
}

// The shuffle indices merging in loaded vector v (v >= 1): the first shuffle takes lanes from
// vectors 0 and 1, each later one keeps what it has and takes the lanes of vector v.
template <int K>
constexpr int Index(int o, int j, int v) {
    const int lane = Lane<K>(o, j);
    if (v == 1) {
        return lane < 32 ? lane : -1;
    }
    return lane / 16 == v ? 16 + lane % 16 : j;
}

// Each vector is loaded into its own variable: loaded as an array, they went through the stack.
inline Bytes16 Load(const unsigned char* from) {
    Bytes16 v;
    std::memcpy(&v, from, sizeof v);
    return v;
}

// Output vector O of the 16 pixels whose totals start at `totals`, stored to `out`.
template <int K, int O, size_t... J>
inline void StoreVector(const unsigned char* totals, unsigned char* out,
                        std::index_sequence<J...>) {
    constexpr int kLoads = Loads<K>(O);
    static_assert(kLoads >= 2 && kLoads <= 4, "a vector draws on two to four loads");
    const unsigned char* from = totals + From<K>(O);
    Bytes16 v = __builtin_shufflevector(Load(from), Load(from + 16), Index<K>(O, J, 1)...);
    if constexpr (kLoads > 2) {
        v = __builtin_shufflevector(v, Load(from + 32), Index<K>(O, J, 2)...);
    }
    if constexpr (kLoads > 3) {
        v = __builtin_shufflevector(v, Load(from + 48), Index<K>(O, J, 3)...);
    }
    std::memcpy(out + 16 * O, &v, sizeof v);
}

// The last totals byte a run of 16 pixels loads.
template <int K>
constexpr int LastLoaded() {
    return From<K>(2) + 16 * Loads<K>(2) - 1;
}

}  // namespace pick_pixels

// out[3p + c] = totals[3Kp + c] for pixels p < `pixels`, reading no totals byte at or past
// `count`, the first one no pixel takes.
template <int K>
inline void PickPixels(const unsigned char* totals, int pixels, int count, unsigned char* out) {
    using namespace pick_pixels;
    constexpr auto kLanes = std::make_index_sequence<16>();
    int p = 0;
    for (; p + 16 <= pixels && 3 * K * p + LastLoaded<K>() < count; p += 16) {
        const unsigned char* from = totals + 3 * K * p;
        StoreVector<K, 0>(from, out + 3 * p, kLanes);
        StoreVector<K, 1>(from, out + 3 * p, kLanes);
        StoreVector<K, 2>(from, out + 3 * p, kLanes);
    }
    for (; p < pixels; ++p) {
        std::memcpy(out + 3 * p, totals + 3 * K * p, 3);
    }
}

}  // namespace IQA

#endif  // IQA_PROCESS_PICK_PIXELS_H
