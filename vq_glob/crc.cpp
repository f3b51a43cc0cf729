// CRC-32 with a running register per thread.
//
// The CRC is the standard reflected one (polynomial 0xEDB88320, register
// preset to all ones, result complemented), so its values are those of zlib's
// crc32. Each thread's register lives in the CRC module's record of the
// per-thread block, which lets a caller feed an input in pieces.
//
// Three ways to the same value, chosen once at run time:
//  - a slicing-by-16 table method, portable, used for short runs and for
//    tails, and for everything on CPUs without carry-less multiplication;
//  - on x86 CPUs with PCLMULQDQ, folding: the input is consumed 64 bytes at a
//    time in four 128-bit accumulators, each multiplied (carry-less) by x^512
//    mod P and added to the next block, then folded into one accumulator and
//    reduced to 32 bits by Barrett reduction;
//  - on x86-64 CPUs with AVX-512 and VPCLMULQDQ, the same folding on four
//    512-bit accumulators, 256 bytes per step.
// The folding functions carry their own target attributes, so the rest of
// the library stays built for the baseline instruction set. Their constants
// are derived here from the polynomial at compile time.
#include <cstddef>
#include <cstdint>

#include "internal/frame.h"
#include "vq_glob/hash.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define VQ_CRC_HAVE_CLMUL 1
#endif

namespace vq::crc {
namespace {

// The reflected polynomial, and the full normal one (with its x^32 term) from
// which the folding constants are derived.
constexpr uint32_t kPolyReflected = 0xEDB88320u;
constexpr uint64_t kPolyNormal = 0x104C11DB7u;
constexpr uint32_t kRegisterPreset = 0xFFFFFFFFu;

struct CrcRecord {
    uint32_t reg = kRegisterPreset;  // the running register, not complemented
};

using Frame = frame::ModuleFrame<CrcRecord, frame::kSlotCrc>;

// ---- Table method ------------------------------------------------------------------

// t[0] is the classic byte table; t[k][b] is the register change of byte b
// followed by k zero bytes, so that 16 (or 8) bytes are folded in at once by
// independent look-ups.
constexpr int kSlices = 16;

struct SliceTables {
    uint32_t t[kSlices][256];
};

constexpr SliceTables make_slice_tables() {
    SliceTables s{};
    for (uint32_t b = 0; b < 256; ++b) {
        uint32_t c = b;
        for (int bit = 0; bit < 8; ++bit) {
            c = (c & 1u) != 0 ? (c >> 1) ^ kPolyReflected : c >> 1;
        }
        s.t[0][b] = c;
    }
    for (int k = 1; k < kSlices; ++k) {
        for (uint32_t b = 0; b < 256; ++b) {
            uint32_t prev = s.t[k - 1][b];
            s.t[k][b] = (prev >> 8) ^ s.t[0][prev & 0xFFu];
        }
    }
    return s;
}

constexpr SliceTables kTables = make_slice_tables();

// Little-endian 32-bit read from any address (one load on x86 and ARM).
inline uint32_t load_le32(const unsigned char *p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

// The register change of the four bytes of w that lie k + 3 .. k bytes
// before the end of a slice.
inline uint32_t slice4(uint32_t w, int k) {
    const auto &t = kTables.t;
    return t[k + 3][w & 0xFFu] ^ t[k + 2][(w >> 8) & 0xFFu] ^ t[k + 1][(w >> 16) & 0xFFu] ^ t[k][w >> 24];
}

uint32_t update_tables(uint32_t reg, const unsigned char *p, size_t n) {
    while (n >= 16) {
        reg = slice4(load_le32(p) ^ reg, 12) ^ slice4(load_le32(p + 4), 8) ^ slice4(load_le32(p + 8), 4) ^
              slice4(load_le32(p + 12), 0);
        p += 16;
        n -= 16;
    }
    if (n >= 8) {
        reg = slice4(load_le32(p) ^ reg, 4) ^ slice4(load_le32(p + 4), 0);
        p += 8;
        n -= 8;
    }
    if (n >= 4) {
        reg = slice4(load_le32(p) ^ reg, 0);
        p += 4;
        n -= 4;
    }
    while (n-- > 0) {
        reg = (reg >> 8) ^ kTables.t[0][(reg ^ *p++) & 0xFFu];
    }
    return reg;
}

// ---- Folding constants ----------------------------------------------------------------

// x^n mod P in normal bit order.
constexpr uint32_t xpow_mod(int n) {
    uint64_t r = 1;
    for (int i = 0; i < n; ++i) {
        r <<= 1;
        if ((r >> 32) & 1u) {
            r ^= kPolyNormal;
        }
    }
    return static_cast<uint32_t>(r);
}

constexpr uint64_t reflect(uint64_t v, int bits) {
    uint64_t r = 0;
    for (int i = 0; i < bits; ++i) {
        r |= ((v >> i) & 1u) << (bits - 1 - i);
    }
    return r;
}

// A multiplier for carry-less products on reflected data: x^e mod P,
// bit-reflected, with the one-bit shift that reflected products need.
constexpr uint64_t fold_constant(int e) { return reflect(xpow_mod(e), 32) << 1; }

// floor(x^64 / P), the Barrett reduction's quotient estimate (33 bits).
constexpr uint64_t barrett_mu() {
    uint64_t q = 0;
    uint64_t r = 0;
    for (int i = 64; i >= 0; --i) {
        r = (r << 1) | (i == 64 ? 1u : 0u);
        if ((r >> 32) & 1u) {
            r ^= kPolyNormal;
            q |= uint64_t{1} << i;
        }
    }
    return q;
}

// Folding an accumulator forward by d bits multiplies its low (earlier, in
// reflected order higher-degree) half by x^(d+32) and its high half by
// x^(d-32), both mod P.
struct FoldPair {
    uint64_t lo, hi;
};
constexpr FoldPair fold_pair(int distance) {
    return {fold_constant(distance + 32), fold_constant(distance - 32)};
}

constexpr FoldPair kFold512 = fold_pair(512);
constexpr FoldPair kFold128 = fold_pair(128);
constexpr uint64_t kFold64 = fold_constant(64);
constexpr uint64_t kPolyReflected33 = reflect(kPolyNormal, 33);
constexpr uint64_t kMuReflected = reflect(barrett_mu(), 33);

// The derivation reproduces the values published with Intel's folding paper.
static_assert(kFold512.lo == 0x154442BD4u && kFold512.hi == 0x1C6E41596u);
static_assert(kFold128.lo == 0x1751997D0u && kFold128.hi == 0x0CCAA009Eu);
static_assert(kFold64 == 0x163CD6124u && kPolyReflected33 == 0x1DB710641u && kMuReflected == 0x1F7011641u);

#if defined(VQ_CRC_HAVE_CLMUL)

// Folding pays for its set-up and final reduction from about this length.
constexpr size_t kFoldMinimum = 32;

// A bulk method: feeds n bytes (n >= kFoldMinimum, a multiple of 16).
using Kernel = uint32_t (*)(uint32_t reg, const unsigned char *p, size_t n);

#if defined(__i386__)
// The 32-bit Windows ABI keeps the stack only 4-byte aligned; vector spills
// need 16.
#define VQ_CRC_KERNEL __attribute__((target("pclmul,sse4.1"), force_align_arg_pointer))
#else
#define VQ_CRC_KERNEL __attribute__((target("pclmul,sse4.1")))
#endif

VQ_CRC_KERNEL inline __m128i load128(const unsigned char *p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

// acc carried forward by the distance that k encodes, added to next.
VQ_CRC_KERNEL inline __m128i fold(__m128i acc, __m128i k, __m128i next) {
    __m128i lo = _mm_clmulepi64_si128(acc, k, 0x00);
    __m128i hi = _mm_clmulepi64_si128(acc, k, 0x11);
    return _mm_xor_si128(_mm_xor_si128(lo, hi), next);
}

// Folds the remaining 16-byte blocks (n a multiple of 16) into the
// accumulator and reduces it to the new register value.
VQ_CRC_KERNEL uint32_t finish_clmul(__m128i x0, const unsigned char *p, size_t n) {
    const __m128i k128 =
        _mm_set_epi64x(static_cast<long long>(kFold128.hi), static_cast<long long>(kFold128.lo));
    while (n >= 16) {
        x0 = fold(x0, k128, load128(p));
        p += 16;
        n -= 16;
    }

    // 128 -> 96 bits: the low half times x^96 mod P, added to the high half
    // (this also appends the 32 zero bits a CRC implies).
    const __m128i mask32 = _mm_setr_epi32(-1, 0, -1, 0);
    x0 = _mm_xor_si128(_mm_srli_si128(x0, 8), _mm_clmulepi64_si128(x0, k128, 0x10));
    // 96 -> 64 bits: the low 32 bits times x^64 mod P, added to the rest.
    const __m128i k64 = _mm_set_epi64x(0, static_cast<long long>(kFold64));
    x0 = _mm_xor_si128(_mm_srli_si128(x0, 4), _mm_clmulepi64_si128(_mm_and_si128(x0, mask32), k64, 0x00));
    // 64 -> 32 bits by Barrett reduction: q = floor(x * mu / x^64), crc = x - q * P.
    const __m128i barrett =
        _mm_set_epi64x(static_cast<long long>(kMuReflected), static_cast<long long>(kPolyReflected33));
    __m128i q = _mm_clmulepi64_si128(_mm_and_si128(x0, mask32), barrett, 0x10);
    __m128i qp = _mm_clmulepi64_si128(_mm_and_si128(q, mask32), barrett, 0x00);
    return static_cast<uint32_t>(_mm_extract_epi32(_mm_xor_si128(x0, qp), 1));
}

// Feeds n bytes (n >= 32 and a multiple of 16) into the register.
VQ_CRC_KERNEL uint32_t update_clmul(uint32_t reg, const unsigned char *p, size_t n) {
    __m128i x0 = _mm_xor_si128(load128(p), _mm_cvtsi32_si128(static_cast<int>(reg)));
    if (n < 64) {
        return finish_clmul(x0, p + 16, n - 16);
    }
    __m128i x1 = load128(p + 16);
    __m128i x2 = load128(p + 32);
    __m128i x3 = load128(p + 48);
    p += 64;
    n -= 64;

    const __m128i k512 =
        _mm_set_epi64x(static_cast<long long>(kFold512.hi), static_cast<long long>(kFold512.lo));
    while (n >= 64) {
        x0 = fold(x0, k512, load128(p));
        x1 = fold(x1, k512, load128(p + 16));
        x2 = fold(x2, k512, load128(p + 32));
        x3 = fold(x3, k512, load128(p + 48));
        p += 64;
        n -= 64;
    }

    const __m128i k128 =
        _mm_set_epi64x(static_cast<long long>(kFold128.hi), static_cast<long long>(kFold128.lo));
    x0 = fold(x0, k128, x1);
    x0 = fold(x0, k128, x2);
    x0 = fold(x0, k128, x3);
    return finish_clmul(x0, p, n);
}

#if defined(__x86_64__)
#define VQ_CRC_HAVE_WIDE 1

// The same folding four 128-bit lanes at a time in 512-bit registers
// (VPCLMULQDQ): four accumulators of 64 bytes take 256 bytes per step.
#define VQ_CRC_WIDE_KERNEL __attribute__((target("avx512f,vpclmulqdq,pclmul,sse4.1")))

constexpr FoldPair kFold2048 = fold_pair(2048);
constexpr FoldPair kFold384 = fold_pair(384);
constexpr FoldPair kFold256 = fold_pair(256);

VQ_CRC_WIDE_KERNEL inline __m512i load512(const unsigned char *p) { return _mm512_loadu_si512(p); }

VQ_CRC_WIDE_KERNEL inline __m512i fold512(__m512i acc, __m512i k, __m512i next) {
    __m512i lo = _mm512_clmulepi64_epi128(acc, k, 0x00);
    __m512i hi = _mm512_clmulepi64_epi128(acc, k, 0x11);
    return _mm512_ternarylogic_epi64(lo, hi, next, 0x96);  // lo ^ hi ^ next
}

VQ_CRC_WIDE_KERNEL inline __m512i broadcast(FoldPair k) {
    return _mm512_set_epi64(static_cast<long long>(k.hi), static_cast<long long>(k.lo),
                            static_cast<long long>(k.hi), static_cast<long long>(k.lo),
                            static_cast<long long>(k.hi), static_cast<long long>(k.lo),
                            static_cast<long long>(k.hi), static_cast<long long>(k.lo));
}

// One 128-bit lane (the zero-masking form: the plain one trips a false
// "uninitialized" warning in GCC's headers).
#define VQ_CRC_LANE(z, i) _mm512_maskz_extracti32x4_epi32(0xF, (z), (i))

// Feeds n bytes (n >= 32 and a multiple of 16) into the register.
VQ_CRC_WIDE_KERNEL uint32_t update_wide(uint32_t reg, const unsigned char *p, size_t n) {
    if (n < 64) {
        return update_clmul(reg, p, n);
    }
    const __m512i k512 = broadcast(kFold512);
    __m512i z0 =
        _mm512_xor_si512(load512(p), _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(reg))));
    if (n >= 256) {
        __m512i z1 = load512(p + 64);
        __m512i z2 = load512(p + 128);
        __m512i z3 = load512(p + 192);
        p += 256;
        n -= 256;
        const __m512i k2048 = broadcast(kFold2048);
        while (n >= 256) {
            z0 = fold512(z0, k2048, load512(p));
            z1 = fold512(z1, k2048, load512(p + 64));
            z2 = fold512(z2, k2048, load512(p + 128));
            z3 = fold512(z3, k2048, load512(p + 192));
            p += 256;
            n -= 256;
        }
        z0 = fold512(z0, k512, z1);
        z0 = fold512(z0, k512, z2);
        z0 = fold512(z0, k512, z3);
    } else {
        p += 64;
        n -= 64;
    }
    while (n >= 64) {
        z0 = fold512(z0, k512, load512(p));
        p += 64;
        n -= 64;
    }

    // The four lanes of z0 into one: lane i is carried forward by
    // (3 - i) * 128 bits onto lane 3.
    const __m512i k_lanes =
        _mm512_set_epi64(0, 0, static_cast<long long>(kFold128.hi), static_cast<long long>(kFold128.lo),
                         static_cast<long long>(kFold256.hi), static_cast<long long>(kFold256.lo),
                         static_cast<long long>(kFold384.hi), static_cast<long long>(kFold384.lo));
    __m512i moved = fold512(z0, k_lanes, _mm512_setzero_si512());
    __m128i x0 = _mm_xor_si128(_mm_xor_si128(VQ_CRC_LANE(moved, 0), VQ_CRC_LANE(moved, 1)),
                               _mm_xor_si128(VQ_CRC_LANE(moved, 2), VQ_CRC_LANE(z0, 3)));
    return finish_clmul(x0, p, n);
}
#undef VQ_CRC_LANE

#endif  // __x86_64__

// The fastest bulk method this CPU runs; null when it has none.
Kernel select_kernel() {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("pclmul") || !__builtin_cpu_supports("sse4.1")) {
        return nullptr;
    }
#if defined(VQ_CRC_HAVE_WIDE)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("vpclmulqdq")) {
        return update_wide;
    }
#endif
    return update_clmul;
}

#endif  // VQ_CRC_HAVE_CLMUL

uint32_t update(uint32_t reg, const unsigned char *p, size_t n) {
#if defined(VQ_CRC_HAVE_CLMUL)
    if (n >= kFoldMinimum) {
        static const Kernel kernel = select_kernel();
        if (kernel != nullptr) {
            size_t bulk = n & ~size_t{15};
            reg = kernel(reg, p, bulk);
            p += bulk;
            n -= bulk;
        }
    }
#endif
    return update_tables(reg, p, n);
}

}  // namespace
}  // namespace vq::crc

// One look-up of the thread's record per call. A thread whose block cannot
// be made (out of memory) still gets the CRC of this buffer alone, as if the
// register had just been reset.
extern "C" VQ_API uint32_t updcrc(const unsigned char *buffer, uint32_t length) {
    vq::crc::CrcRecord *record = vq::crc::Frame::get();
    if (buffer == nullptr) {
        if (record != nullptr) {
            record->reg = vq::crc::kRegisterPreset;
        }
        return 0;
    }
    uint32_t reg = record != nullptr ? record->reg : vq::crc::kRegisterPreset;
    reg = vq::crc::update(reg, buffer, length);
    if (record != nullptr) {
        record->reg = reg;
    }
    return ~reg;
}

extern "C" VQ_API uint32_t crc32_continue(uint32_t crc, const void *bytes, size_t length) {
    if (bytes == nullptr) {
        return crc;
    }
    return ~vq::crc::update(~crc, static_cast<const unsigned char *>(bytes), length);
}

// The hash table's default hash: the same as updcrc(NULL, 0) followed by
// updcrc(bytes, length), with one look-up of the thread's record instead of
// two, and no 32-bit limit on the length.
namespace vq::crc {
uint32_t crc_from_reset(const unsigned char *bytes, size_t length) {
    CrcRecord *record = Frame::get();
    uint32_t reg = update(kRegisterPreset, bytes, length);
    if (record != nullptr) {
        record->reg = reg;
    }
    return ~reg;
}
}  // namespace vq::crc

namespace vq::frame {
constinit const Module kCrcModule = ModuleFrame<crc::CrcRecord, kSlotCrc>::module("crc");
}  // namespace vq::frame
