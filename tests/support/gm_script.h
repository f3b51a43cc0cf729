// Writer scripts for general messages: a run of bytes read as a sequence of
// gm_add_* / stream / struct / date calls, the message those calls write, and
// the parameters taking it apart must give back. The same scripts drive the
// round-trip test (random bytes) and the fuzz target (the fuzzer's bytes), so
// every message a script writes is a message the library may really send.
//
// Only uses the writer allows: streams of 1-4 members of types 0-4 with
// non-null strings (an empty stream's head is read on into its data byte),
// structs of 0-4 members that are scalars, strings, voids or streams (structs
// do not nest), dates at the top level, and at most one struct left open at
// the very end with nothing after its head.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "vq_glob/gm.h"
#include "vq_glob/tvtime.h"

namespace vq::test {

// One parameter as the parse handle should hold it: its getter's type and its
// bytes (host order for numbers, a stream's members end to end). null stands
// for a null string or a void without data.
struct GmExpected {
    int type = GM_TYPE_CHAR;
    std::string bytes;
    bool null = false;
};

class GmScript {
public:
    static constexpr size_t kMaxOps = 48;
    static constexpr uint32_t kCapacity = 65536;

    // Runs the script on the calling thread's message under construction.
    GmScript(const uint8_t *data, size_t size) : data_(data), size_(size), message_(kCapacity) {
        gm_init_message_ex(message_.data(), kCapacity);
        for (size_t ops = 0; ops < kMaxOps && at_ < size_; ++ops) {
            if (!top_level_op()) {
                break;
            }
        }
        message_.resize(gm_end_message());
    }

    [[nodiscard]] const std::vector<unsigned char> &message() const { return message_; }
    [[nodiscard]] const std::map<int32_t, GmExpected> &expected() const { return expected_; }

    // Takes the message apart and compares every parameter with what was
    // written; an empty text when all is as written, else what differs.
    [[nodiscard]] std::string check_round_trip() const {
        if (gm_disassemble_message(message_.data(), static_cast<uint32_t>(message_.size())) != 1) {
            return "the message does not take apart";
        }
        // Plain codes first: nothing of the taking apart may have left the
        // getters inside a struct.
        for (const auto &[key, want] : expected_) {
            if (key <= 0xFF) {
                std::string diff = compare(key, want);
                if (!diff.empty()) {
                    return diff;
                }
            }
        }
        for (const auto &[key, want] : expected_) {
            if (key > 0xFF) {
                gm_start_struct(key >> 8);
                std::string diff = compare(key & 0xFF, want);
                gm_stop_struct();
                if (!diff.empty()) {
                    return diff;
                }
            }
        }
        return {};
    }

private:
    uint8_t next() { return at_ < size_ ? data_[at_++] : 0; }

    // Big-endian, so a script reads the same on every compiler.
    uint32_t next_bytes(int count) {
        uint32_t v = 0;
        for (int i = 0; i < count; ++i) {
            v = (v << 8) | next();
        }
        return v;
    }
    int32_t next32() { return static_cast<int32_t>(next_bytes(4)); }
    int16_t next16() { return static_cast<int16_t>(next_bytes(2)); }

    template <typename T>
    static std::string host_bytes(T v) {
        return std::string(reinterpret_cast<const char *>(&v), sizeof v);
    }

    void expect(int32_t key, int type, std::string bytes, bool null = false) {
        expected_[key] = GmExpected{type, std::move(bytes), null};
    }

    // A string of 0-7 characters, none of them a NUL.
    std::string text() {
        std::string s(next() % 8, 'x');
        for (char &c : s) {
            c = static_cast<char>(next() % 255 + 1);
        }
        return s;
    }

    // One scalar, string or void element under code, filed under key.
    void element(int op, int32_t code, int32_t key) {
        switch (op) {
        case 0: {
            const auto v = static_cast<char>(next());
            gm_add_char_to_message(code, v);
            expect(key, GM_TYPE_CHAR, host_bytes(v));
            break;
        }
        case 1: {
            const auto v = next16();
            gm_add_short_to_message(code, v);
            expect(key, GM_TYPE_SHORT, host_bytes(v));
            break;
        }
        case 2:
        case 3: {
            const int32_t v = next32();
            (op == 2 ? gm_add_int_to_message : gm_add_long_to_message)(code, v);
            expect(key, op == 2 ? GM_TYPE_INT : GM_TYPE_LONG, host_bytes(v));
            break;
        }
        case 4: {
            const std::string s = text();
            gm_add_str_to_message(code, s.c_str());
            expect(key, GM_TYPE_STR, s);
            break;
        }
        case 5:
            gm_add_str_to_message(code, nullptr);
            expect(key, GM_TYPE_STR, {}, true);
            break;
        case 6: {
            std::string bytes(next() % 8, '\0');
            for (char &c : bytes) {
                c = static_cast<char>(next());
            }
            gm_add_void_to_message(code, bytes.data(), static_cast<uint16_t>(bytes.size()));
            expect(key, GM_TYPE_VOID, bytes, bytes.empty());
            break;
        }
        case 7:
            gm_add_void_to_message(code, nullptr, next());
            expect(key, GM_TYPE_VOID, {}, true);
            break;
        default:
            stream(code);
            break;
        }
    }

    // A stream of 1-4 members, filed as one void under its plain code even
    // inside a struct.
    void stream(int32_t code) {
        const int type = next() % 5;
        const int members = 1 + next() % 4;
        std::string array;
        gm_init_message_stream(code, type);
        for (int i = 0; i < members; ++i) {
            if (type == GM_TYPE_CHAR) {
                const auto v = static_cast<char>(next());
                gm_add_char_to_message(code, v);
                array += host_bytes(v);
            } else if (type == GM_TYPE_SHORT) {
                const auto v = next16();
                gm_add_short_to_message(code, v);
                array += host_bytes(v);
            } else if (type == GM_TYPE_STR) {
                const std::string s = text();
                gm_add_str_to_message(code, s.c_str());
                array += s;
                array += '\0';
            } else {
                const int32_t v = next32();
                (type == GM_TYPE_INT ? gm_add_int_to_message : gm_add_long_to_message)(code, v);
                array += host_bytes(v);
            }
        }
        gm_close_stream();
        expect(code, GM_TYPE_VOID, array);
    }

    // Returns false once the script has left a struct open at the end.
    bool top_level_op() {
        const int op = next() % 13;
        const int32_t code = next();
        if (op <= 8) {
            element(op, code, code);
            return true;
        }
        switch (op) {
        case 9: {  // a struct of 0-4 members, closed
            gm_init_struct(code, next());
            const int members = next() % 5;
            for (int i = 0; i < members; ++i) {
                const int member_op = next() % 9;
                const int32_t member = next();
                element(member_op, member, code << 8 | member);
            }
            gm_close_struct();
            return true;
        }
        case 10: {
            const tvtime t{static_cast<uint32_t>(next32()), next32()};
            gm_add_date_to_message(code, &t);
            expect(code << 8, GM_TYPE_LONG, host_bytes(static_cast<int32_t>(t.seconds)));
            expect(code << 8 | 1, GM_TYPE_INT, host_bytes(t.zone));
            return true;
        }
        case 11: {
            tvtime_old old{};
            int32_t *fields = &old.tm_sec;
            for (int32_t i = 0; i < 9; ++i) {
                fields[i] = next32();
            }
            gm_add_old_date_to_message(code, &old);
            for (int32_t i = 0; i < 9; ++i) {
                expect(code << 8 | i, GM_TYPE_INT, host_bytes(fields[i]));
            }
            return true;
        }
        default:  // a struct head that announces a member and ends the message
            gm_init_struct(code, next());
            return false;
        }
    }

    // The parameter under code (in the struct the getters are in) against want.
    static std::string compare(int32_t code, const GmExpected &want) {
        const std::string where = "code " + std::to_string(code) + " of type " + std::to_string(want.type);
        std::string got;
        bool found = false;
        bool null = false;
        switch (want.type) {
        case GM_TYPE_CHAR: {
            char v = 0;
            found = gm_get_char_param(code, &v) == 1;
            got = host_bytes(v);
            break;
        }
        case GM_TYPE_SHORT: {
            int16_t v = 0;
            found = gm_get_short_param(code, &v) == 1;
            got = host_bytes(v);
            break;
        }
        case GM_TYPE_INT:
        case GM_TYPE_LONG: {
            int32_t v = 0;
            found = (want.type == GM_TYPE_INT ? gm_get_int_param : gm_get_long_param)(code, &v) == 1;
            got = host_bytes(v);
            break;
        }
        case GM_TYPE_STR: {
            char *s = nullptr;
            found = gm_get_str_param(code, &s) == 1;
            null = s == nullptr;
            got = s != nullptr ? std::string(s) : std::string();
            break;
        }
        default: {
            void *v = nullptr;
            found = gm_get_void_param(code, &v) == 1;
            null = v == nullptr;
            // A void's size is not handed out: compare as many bytes as written.
            got = v != nullptr ? std::string(static_cast<const char *>(v), want.bytes.size()) : std::string();
            break;
        }
        }
        if (!found) {
            return where + ": not found";
        }
        if (null != want.null || got != want.bytes) {
            return where + ": other value";
        }
        return {};
    }

    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
    std::vector<unsigned char> message_;
    std::map<int32_t, GmExpected> expected_;
};

}  // namespace vq::test
