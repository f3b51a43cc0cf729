// Cost of building and taking apart a general message of 1,000 mixed elements
// (ints, shorts, strings, voids and a stream of ints) against msgpack-c
// packing the same values as a map from element code to value and unpacking
// it into msgpack objects.
//
// Both writers fill one fixed buffer, so neither pays for growing it. Taking
// apart is, on our side, filing every element as a typed parameter that the
// getters then find by code; on msgpack's, unpacking into an object tree in a
// zone that is cleared and reused between iterations.
#include <benchmark/benchmark.h>
#include <msgpack.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "vq_glob/gm.h"

namespace {

constexpr int kElements = 1000;
constexpr int kStreamMembers = 49;  // plus its head: 50 elements
constexpr int kStreamCode = 250;
constexpr size_t kBufferSize = 1 << 16;

enum class Kind { integer, short_integer, text, bytes };

struct Element {
    uint8_t code;
    Kind kind;
    int32_t number;
    const char *text;
};

const char *const kTexts[] = {"alpha", "replication job 17", "C:\\data\\incoming\\file.txt", "ok"};
const unsigned char kBytes[32] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,
                                  17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32};

// 950 single elements in a fixed mix (30% ints, 20% shorts, 25% strings,
// 25% voids of 32 bytes) under codes 0-199, then the stream.
std::vector<Element> elements() {
    std::vector<Element> out;
    for (int i = 0; i < kElements - kStreamMembers - 1; ++i) {
        const int slot = i % 20;
        const Kind kind = slot < 6    ? Kind::integer
                          : slot < 10 ? Kind::short_integer
                          : slot < 15 ? Kind::text
                                      : Kind::bytes;
        out.push_back({static_cast<uint8_t>(i % 200), kind, i * 7919, kTexts[i % 4]});
    }
    return out;
}

const std::vector<Element> &mix() {
    static const std::vector<Element> e = elements();
    return e;
}

unsigned char g_gm_buffer[kBufferSize];

uint32_t build_gm() {
    gm_init_message(g_gm_buffer);
    for (const Element &e : mix()) {
        switch (e.kind) {
        case Kind::integer:
            gm_add_int_to_message(e.code, e.number);
            break;
        case Kind::short_integer:
            gm_add_short_to_message(e.code, static_cast<int16_t>(e.number));
            break;
        case Kind::text:
            gm_add_str_to_message(e.code, e.text);
            break;
        case Kind::bytes:
            gm_add_void_to_message(e.code, kBytes, sizeof kBytes);
            break;
        }
    }
    gm_init_message_stream(kStreamCode, GM_TYPE_INT);
    for (int i = 0; i < kStreamMembers; ++i) {
        gm_add_int_to_message(kStreamCode, i);
    }
    gm_close_stream();
    return gm_end_message();
}

// A fixed buffer for msgpack's packer.
struct FixedBuffer {
    char data[kBufferSize];
    size_t size = 0;
};
FixedBuffer g_mp_buffer;

int fixed_write(void *target, const char *bytes, size_t length) {
    auto *buffer = static_cast<FixedBuffer *>(target);
    if (buffer->size + length > sizeof buffer->data) {
        return -1;
    }
    std::memcpy(buffer->data + buffer->size, bytes, length);
    buffer->size += length;
    return 0;
}

size_t build_msgpack() {
    g_mp_buffer.size = 0;
    msgpack_packer pk;
    msgpack_packer_init(&pk, &g_mp_buffer, fixed_write);
    msgpack_pack_map(&pk, mix().size() + 1);
    for (const Element &e : mix()) {
        msgpack_pack_uint8(&pk, e.code);
        switch (e.kind) {
        case Kind::integer:
            msgpack_pack_int32(&pk, e.number);
            break;
        case Kind::short_integer:
            msgpack_pack_int16(&pk, static_cast<int16_t>(e.number));
            break;
        case Kind::text: {
            const size_t n = std::strlen(e.text);
            msgpack_pack_str(&pk, n);
            msgpack_pack_str_body(&pk, e.text, n);
            break;
        }
        case Kind::bytes:
            msgpack_pack_bin(&pk, sizeof kBytes);
            msgpack_pack_bin_body(&pk, kBytes, sizeof kBytes);
            break;
        }
    }
    msgpack_pack_uint8(&pk, kStreamCode);
    msgpack_pack_array(&pk, kStreamMembers);
    for (int i = 0; i < kStreamMembers; ++i) {
        msgpack_pack_int32(&pk, i);
    }
    return g_mp_buffer.size;
}

void count_elements(benchmark::State &state) {
    state.counters["elements/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kElements, benchmark::Counter::kIsRate);
}

void BM_gm_build(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(build_gm());
    }
    count_elements(state);
    state.counters["bytes"] = static_cast<double>(build_gm());
}
BENCHMARK(BM_gm_build);

void BM_msgpack_pack(benchmark::State &state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(build_msgpack());
    }
    count_elements(state);
    state.counters["bytes"] = static_cast<double>(build_msgpack());
}
BENCHMARK(BM_msgpack_pack);

void BM_gm_take_apart(benchmark::State &state) {
    const uint32_t length = build_gm();
    std::vector<unsigned char> message(g_gm_buffer, g_gm_buffer + length);
    for (auto _ : state) {
        if (gm_disassemble_message(message.data(), length) != 1) {
            state.SkipWithError("gm_disassemble_message failed");
            break;
        }
        int32_t value = 0;
        benchmark::DoNotOptimize(gm_get_int_param(0, &value));
    }
    gm_clean();
    count_elements(state);
}
BENCHMARK(BM_gm_take_apart);

void BM_msgpack_unpack(benchmark::State &state) {
    const size_t length = build_msgpack();
    std::vector<char> message(g_mp_buffer.data, g_mp_buffer.data + length);
    msgpack_zone zone;
    msgpack_zone_init(&zone, 8192);
    for (auto _ : state) {
        msgpack_object object;
        size_t offset = 0;
        if (msgpack_unpack(message.data(), length, &offset, &zone, &object) != MSGPACK_UNPACK_SUCCESS ||
            object.via.map.size != mix().size() + 1) {
            state.SkipWithError("msgpack_unpack failed");
            break;
        }
        benchmark::DoNotOptimize(object.via.map.ptr[0].val.via.i64);
        msgpack_zone_clear(&zone);
    }
    msgpack_zone_destroy(&zone);
    count_elements(state);
}
BENCHMARK(BM_msgpack_unpack);

}  // namespace

BENCHMARK_MAIN();
