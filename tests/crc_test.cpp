// updcrc against a bit-at-a-time CRC-32 written here from the definition:
// known values, every length and alignment across the short-run and folding
// paths, pieces versus one call, and per-thread registers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/lock_step.h"
#include "vq_glob/hash.h"

namespace {

// CRC-32 one bit at a time; crc is a previous result to continue from.
uint32_t reference_crc(const unsigned char *p, size_t n, uint32_t crc = 0) {
    crc = ~crc;
    while (n-- > 0) {
        crc ^= *p++;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1u) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        }
    }
    return ~crc;
}

std::vector<unsigned char> random_bytes(size_t n, uint32_t seed) {
    std::mt19937 gen(seed);
    std::vector<unsigned char> v(n);
    for (auto &b : v) {
        b = static_cast<unsigned char>(gen());
    }
    return v;
}

uint32_t crc_of(const unsigned char *p, size_t n) {
    updcrc(nullptr, 0);
    return updcrc(p, static_cast<uint32_t>(n));
}

TEST(Crc, KnownValues) {
    const std::string check = "123456789";
    EXPECT_EQ(updcrc(nullptr, 0), 0u);
    EXPECT_EQ(updcrc(reinterpret_cast<const unsigned char *>(check.data()), 9), 0xCBF43926u);
    EXPECT_EQ(crc_of(reinterpret_cast<const unsigned char *>(check.data()), 0), 0u);

    std::vector<unsigned char> zeros(4096, 0);
    EXPECT_EQ(crc_of(zeros.data(), 32), 0x190A55ADu);
    EXPECT_EQ(crc_of(zeros.data(), zeros.size()), reference_crc(zeros.data(), zeros.size()));

    std::vector<unsigned char> pattern(1 << 20);
    for (size_t i = 0; i < pattern.size(); ++i) {
        pattern[i] = static_cast<unsigned char>(i * 31 + (i >> 9));
    }
    EXPECT_EQ(crc_of(pattern.data(), pattern.size()), reference_crc(pattern.data(), pattern.size()));
}

// Lengths 0..4096 cover the table method, the switch to folding and every
// tail after the last 16-byte block; each length starts at a random offset.
TEST(Crc, EveryLengthAtRandomAlignments) {
    constexpr size_t kMaxLength = 4096;
    constexpr size_t kOffsets = 64;
    const std::vector<unsigned char> data = random_bytes(kMaxLength + kOffsets, 7);

    // prefix[o][n]: the reference CRC of the n bytes starting at offset o.
    std::vector<std::vector<uint32_t>> prefix(kOffsets, std::vector<uint32_t>(kMaxLength + 1));
    for (size_t o = 0; o < kOffsets; ++o) {
        uint32_t crc = 0;
        prefix[o][0] = 0;
        for (size_t n = 1; n <= kMaxLength; ++n) {
            crc = reference_crc(&data[o + n - 1], 1, crc);
            prefix[o][n] = crc;
        }
    }

    std::mt19937 gen(11);  // NOLINT(cert-msc32-c,cert-msc51-cpp): fixed seeds, so a failure reproduces
    size_t failures = 0;
    for (size_t n = 0; n <= kMaxLength; ++n) {
        size_t o = gen() % kOffsets;
        uint32_t got = crc_of(&data[o], n);
        if (got != prefix[o][n] && ++failures <= 5) {
            ADD_FAILURE() << "length " << n << " at offset " << o << ": " << std::hex << got << " expected "
                          << prefix[o][n];
        }
    }
    EXPECT_EQ(failures, 0u);
}

TEST(Crc, PiecesGiveTheSameValueAsOneCall) {
    const std::vector<unsigned char> data = random_bytes(300000, 3);
    std::vector<uint32_t> prefix(data.size() + 1, 0);  // reference CRC of the first n bytes
    for (size_t n = 1; n <= data.size(); ++n) {
        prefix[n] = reference_crc(&data[n - 1], 1, prefix[n - 1]);
    }
    std::mt19937 gen(5);  // NOLINT(cert-msc32-c,cert-msc51-cpp)
    // Piece sizes around the folding thresholds and some long ones.
    const size_t sizes[] = {0, 1, 7, 15, 16, 17, 63, 64, 65, 127, 128, 200, 4095, 4096, 65536};
    for (int round = 0; round < 20; ++round) {
        updcrc(nullptr, 0);
        uint32_t last = 0;
        for (size_t pos = 0; pos < data.size();) {
            size_t piece = std::min(sizes[gen() % std::size(sizes)], data.size() - pos);
            last = updcrc(&data[pos], static_cast<uint32_t>(piece));
            pos += piece;
            ASSERT_EQ(last, prefix[pos]) << "after " << pos << " bytes";
        }
        EXPECT_EQ(last, prefix.back());
    }
}

// The register-less form gives the same values for any split, while the
// thread's register goes on undisturbed between its calls.
TEST(Crc, ContinuedCrcsNeedNoRegisterAndRunSideBySide) {
    const std::vector<unsigned char> data = random_bytes(100000, 9);
    updcrc(nullptr, 0);
    const uint32_t whole = updcrc(data.data(), static_cast<uint32_t>(data.size()));
    EXPECT_EQ(crc32_continue(0, data.data(), data.size()), whole);
    updcrc(nullptr, 0);
    uint32_t continued = 0;
    uint32_t by_register = 0;
    for (size_t pos = 0, piece = 1; pos < data.size(); pos += piece, piece = piece * 3 + 1) {
        const size_t n = std::min(piece, data.size() - pos);
        continued = crc32_continue(continued, &data[pos], n);
        by_register = updcrc(&data[pos], static_cast<uint32_t>(n));
    }
    EXPECT_EQ(continued, whole);
    EXPECT_EQ(by_register, whole);
    EXPECT_EQ(crc32_continue(0, "123456789", 9), 0xCBF43926u);
    EXPECT_EQ(crc32_continue(whole, nullptr, 5), whole);
    EXPECT_EQ(crc32_continue(7, data.data(), 0), 7u);
}

// Two threads feed different data piece by piece in lock step, so that each
// piece of one thread falls between two pieces of the other.
TEST(Crc, EachThreadHasItsOwnRegister) {
    constexpr int kPieces = 200;
    constexpr size_t kPiece = 1000;
    vq::test::LockStep step(2);
    uint32_t result[2] = {0, 0};
    std::vector<unsigned char> data[2] = {random_bytes(kPieces * kPiece, 21),
                                          random_bytes(kPieces * kPiece, 22)};
    auto feed = [&](int id) {
        // The second thread starts without a reset: a new thread's register
        // starts preset.
        if (id == 0) {
            updcrc(nullptr, 0);
        }
        for (int i = 0; i < kPieces; ++i) {
            step.arrive_and_wait();
            result[id] = updcrc(&data[id][i * kPiece], kPiece);
        }
    };
    std::thread a(feed, 0);
    std::thread b(feed, 1);
    a.join();
    b.join();
    EXPECT_EQ(result[0], reference_crc(data[0].data(), data[0].size()));
    EXPECT_EQ(result[1], reference_crc(data[1].data(), data[1].size()));
}

}  // namespace
