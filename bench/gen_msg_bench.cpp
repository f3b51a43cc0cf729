// Cost of building and of taking apart a general message of 1,000 elements
// against msgpack-c doing the same with the same values.
//
// The values: 950 single elements in a fixed mix (30% ints, 20% shorts, 25%
// strings, 25% voids of 32 bytes) under codes 0-199, then a stream of 49 ints
// under code 250 (its head makes the 1,000th element). msgpack-c packs them as
// a map from each element's code to its value, the stream as an array.
//
//  - build: our writer appends the 1,000 elements to a fixed buffer;
//    msgpack_pack_* write the same values to a fixed buffer of the same size,
//    so neither side pays for growing memory.
//  - take apart: gm_disassemble_message files every element as a typed
//    parameter the getters then find by code (the stream as one void of its
//    members); msgpack_unpack turns the message into an object tree in a zone
//    that is cleared and reused between iterations.
//
// Before any timing both sides' results are compared with the input values:
// our message taken apart gives every code's newest value and the stream's
// members; msgpack's objects give every element's code, type and value. Inside
// the timed loops each iteration checks its length or one value, so nothing
// is optimised away and a broken run stops with an error.
#include <benchmark/benchmark.h>
#include <msgpack.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
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

// ---- our side -------------------------------------------------------------------

unsigned char g_gm_buffer[kBufferSize];

uint32_t build_gm() {
    gm_init_message_ex(g_gm_buffer, sizeof g_gm_buffer);
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

// The newest element of each code, as the getters must give it back.
const Element *newest_of(uint8_t code) {
    const Element *found = nullptr;
    for (const Element &e : mix()) {
        if (e.code == code) {
            found = &e;
        }
    }
    return found;
}

bool gm_value_matches(const Element &e) {
    switch (e.kind) {
    case Kind::integer: {
        int32_t v = 0;
        return gm_get_int_param(e.code, &v) == 1 && v == e.number;
    }
    case Kind::short_integer: {
        int16_t v = 0;
        return gm_get_short_param(e.code, &v) == 1 && v == static_cast<int16_t>(e.number);
    }
    case Kind::text: {
        char *v = nullptr;
        return gm_get_str_param(e.code, &v) == 1 && v != nullptr && std::strcmp(v, e.text) == 0;
    }
    case Kind::bytes: {
        void *v = nullptr;
        return gm_get_void_param(e.code, &v) == 1 && v != nullptr &&
               std::memcmp(v, kBytes, sizeof kBytes) == 0;
    }
    }
    return false;
}

// Takes the message apart and compares every code's value and the stream's
// members with the input. Empty when all match, else what did not.
std::string check_gm_take_apart(const unsigned char *message, uint32_t length) {
    if (gm_disassemble_message(message, length) != 1) {
        return "gm_disassemble_message failed";
    }
    for (int code = 0; code < 200; ++code) {
        const Element *e = newest_of(static_cast<uint8_t>(code));
        if (e == nullptr || !gm_value_matches(*e)) {
            return "wrong value under code " + std::to_string(code);
        }
    }
    void *stream = nullptr;
    if (gm_get_void_param(kStreamCode, &stream) != 1 || stream == nullptr) {
        return "stream missing";
    }
    for (int i = 0; i < kStreamMembers; ++i) {
        int32_t member = 0;
        std::memcpy(&member, static_cast<const unsigned char *>(stream) + 4 * i, sizeof member);
        if (member != i) {
            return "wrong stream member " + std::to_string(i);
        }
    }
    return {};
}

// ---- msgpack-c's side --------------------------------------------------------------

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

// The length written, or 0 when a write failed.
size_t build_msgpack() {
    g_mp_buffer.size = 0;
    msgpack_packer pk;
    msgpack_packer_init(&pk, &g_mp_buffer, fixed_write);
    int failed = msgpack_pack_map(&pk, mix().size() + 1);
    for (const Element &e : mix()) {
        failed |= msgpack_pack_uint8(&pk, e.code);
        switch (e.kind) {
        case Kind::integer:
            failed |= msgpack_pack_int32(&pk, e.number);
            break;
        case Kind::short_integer:
            failed |= msgpack_pack_int16(&pk, static_cast<int16_t>(e.number));
            break;
        case Kind::text: {
            const size_t n = std::strlen(e.text);
            failed |= msgpack_pack_str(&pk, n);
            failed |= msgpack_pack_str_body(&pk, e.text, n);
            break;
        }
        case Kind::bytes:
            failed |= msgpack_pack_bin(&pk, sizeof kBytes);
            failed |= msgpack_pack_bin_body(&pk, kBytes, sizeof kBytes);
            break;
        }
    }
    failed |= msgpack_pack_uint8(&pk, kStreamCode);
    failed |= msgpack_pack_array(&pk, kStreamMembers);
    for (int i = 0; i < kStreamMembers; ++i) {
        failed |= msgpack_pack_int32(&pk, i);
    }
    return failed != 0 ? 0 : g_mp_buffer.size;
}

bool is_integer(const msgpack_object &o, int64_t value) {
    return (o.type == MSGPACK_OBJECT_POSITIVE_INTEGER && value >= 0 && o.via.u64 == static_cast<uint64_t>(value)) ||
           (o.type == MSGPACK_OBJECT_NEGATIVE_INTEGER && value < 0 && o.via.i64 == value);
}

bool mp_value_matches(const Element &e, const msgpack_object &o) {
    switch (e.kind) {
    case Kind::integer:
        return is_integer(o, e.number);
    case Kind::short_integer:
        return is_integer(o, static_cast<int16_t>(e.number));
    case Kind::text:
        return o.type == MSGPACK_OBJECT_STR && o.via.str.size == std::strlen(e.text) &&
               std::memcmp(o.via.str.ptr, e.text, o.via.str.size) == 0;
    case Kind::bytes:
        return o.type == MSGPACK_OBJECT_BIN && o.via.bin.size == sizeof kBytes &&
               std::memcmp(o.via.bin.ptr, kBytes, sizeof kBytes) == 0;
    }
    return false;
}

// Compares every unpacked pair and the stream's members with the input.
std::string check_msgpack_object(const msgpack_object &root) {
    if (root.type != MSGPACK_OBJECT_MAP || root.via.map.size != mix().size() + 1) {
        return "msgpack map of the wrong size";
    }
    for (size_t i = 0; i < mix().size(); ++i) {
        const msgpack_object_kv &kv = root.via.map.ptr[i];
        if (!is_integer(kv.key, mix()[i].code) || !mp_value_matches(mix()[i], kv.val)) {
            return "msgpack pair " + std::to_string(i) + " differs";
        }
    }
    const msgpack_object_kv &stream = root.via.map.ptr[mix().size()];
    if (!is_integer(stream.key, kStreamCode) || stream.val.type != MSGPACK_OBJECT_ARRAY ||
        stream.val.via.array.size != kStreamMembers) {
        return "msgpack stream missing";
    }
    for (int i = 0; i < kStreamMembers; ++i) {
        if (!is_integer(stream.val.via.array.ptr[i], i)) {
            return "msgpack stream member " + std::to_string(i) + " differs";
        }
    }
    return {};
}

std::string check_msgpack(const char *message, size_t length) {
    msgpack_zone zone;
    msgpack_zone_init(&zone, 8192);
    msgpack_object object;
    size_t offset = 0;
    std::string problem = msgpack_unpack(message, length, &offset, &zone, &object) == MSGPACK_UNPACK_SUCCESS
                              ? check_msgpack_object(object)
                              : "msgpack_unpack failed";
    msgpack_zone_destroy(&zone);
    return problem;
}

// ---- benchmarks ----------------------------------------------------------------------

void count_elements(benchmark::State &state) {
    state.counters["elements/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * kElements, benchmark::Counter::kIsRate);
}

// Both messages are built and checked once; the loops then expect the same
// length every time.
bool checked(benchmark::State &state, const std::string &problem) {
    if (problem.empty()) {
        return true;
    }
    state.SkipWithError(problem.c_str());
    return false;
}

void BM_gm_build(benchmark::State &state) {
    const uint32_t expected = build_gm();
    if (!checked(state, expected == 0 ? "gm message empty" : check_gm_take_apart(g_gm_buffer, expected))) {
        return;
    }
    gm_clean();
    for (auto _ : state) {
        const uint32_t length = build_gm();
        benchmark::DoNotOptimize(g_gm_buffer);
        if (length != expected) {
            state.SkipWithError("gm message length changed");
            break;
        }
    }
    count_elements(state);
    state.counters["bytes"] = static_cast<double>(expected);
}
BENCHMARK(BM_gm_build);

void BM_msgpack_pack(benchmark::State &state) {
    const size_t expected = build_msgpack();
    if (!checked(state, expected == 0 ? "msgpack pack failed" : check_msgpack(g_mp_buffer.data, expected))) {
        return;
    }
    for (auto _ : state) {
        const size_t length = build_msgpack();
        benchmark::DoNotOptimize(g_mp_buffer.data);
        if (length != expected) {
            state.SkipWithError("msgpack message length changed");
            break;
        }
    }
    count_elements(state);
    state.counters["bytes"] = static_cast<double>(expected);
}
BENCHMARK(BM_msgpack_pack);

// Each iteration reads back one int (code 5's newest value).
void BM_gm_take_apart(benchmark::State &state) {
    const uint32_t length = build_gm();
    const std::vector<unsigned char> message(g_gm_buffer, g_gm_buffer + length);
    if (!checked(state, check_gm_take_apart(message.data(), length))) {
        return;
    }
    const Element *probe = newest_of(5);
    for (auto _ : state) {
        int32_t value = 0;
        if (gm_disassemble_message(message.data(), length) != 1 || gm_get_int_param(probe->code, &value) != 1 ||
            value != probe->number) {
            state.SkipWithError("gm take apart failed");
            break;
        }
    }
    gm_clean();
    count_elements(state);
}
BENCHMARK(BM_gm_take_apart);

// Each iteration checks the map's size and the same int.
void BM_msgpack_unpack(benchmark::State &state) {
    const size_t length = build_msgpack();
    const std::vector<char> message(g_mp_buffer.data, g_mp_buffer.data + length);
    if (!checked(state, check_msgpack(message.data(), length))) {
        return;
    }
    const Element *probe = newest_of(5);
    const size_t probe_index = static_cast<size_t>(probe - mix().data());
    msgpack_zone zone;
    msgpack_zone_init(&zone, 8192);
    for (auto _ : state) {
        msgpack_object object;
        size_t offset = 0;
        if (msgpack_unpack(message.data(), length, &offset, &zone, &object) != MSGPACK_UNPACK_SUCCESS ||
            object.via.map.size != mix().size() + 1 ||
            !is_integer(object.via.map.ptr[probe_index].val, probe->number)) {
            state.SkipWithError("msgpack_unpack failed");
            break;
        }
        msgpack_zone_clear(&zone);
    }
    msgpack_zone_destroy(&zone);
    count_elements(state);
}
BENCHMARK(BM_msgpack_unpack);

}  // namespace

BENCHMARK_MAIN();
