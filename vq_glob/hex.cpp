// Hexadecimal text of byte runs, in a per-thread buffer.
#include "vq_glob/hex.h"

#include <cstdlib>
#include <cstring>

#include "internal/ascii.h"
#include "internal/frame.h"
#include "internal/raise.h"
#include "vq_glob/err.h"

namespace vq::hex {
namespace {

// The result buffer grows to the longest text the thread asked for.
struct HexRecord {
    char *text = nullptr;
    size_t capacity = 0;

    ~HexRecord() { std::free(text); }
};

using Frame = frame::ModuleFrame<HexRecord, frame::kSlotHex, frame::OnDemand::yes>;

constexpr char kDigits[] = "0123456789ABCDEF";

int digit_value(char c) {
    if (ascii::is_digit(c)) {
        return c - '0';
    }
    char upper = ascii::to_upper(c);
    if (upper >= 'A' && upper <= 'F') {
        return upper - 'A' + 10;
    }
    return -1;
}

bool reserve(HexRecord &rec, size_t needed) {
    if (needed <= rec.capacity) {
        return true;
    }
    auto *grown = static_cast<char *>(std::realloc(rec.text, needed));
    if (grown == nullptr) {
        return false;
    }
    rec.text = grown;
    rec.capacity = needed;
    return true;
}

}  // namespace
}  // namespace vq::hex

namespace vq::frame {
constinit const Module kHexModule = hex::Frame::module("hex");
}  // namespace vq::frame

using namespace vq::hex;
using vq::raise::Report;

extern "C" {

VQ_API const char *convert_to_hex(const unsigned char *bytes, int32_t count) {
    HexRecord *rec = Frame::get();
    if (rec == nullptr || bytes == nullptr || count < 0) {
        return "";
    }
    size_t needed = static_cast<size_t>(count) * 2 + 1;
    if (!reserve(*rec, needed)) {
        VQ_NO_MEMORY(Report::add, "hex");
        return "";
    }
    for (int32_t i = 0; i < count; ++i) {
        rec->text[2 * i] = kDigits[bytes[i] >> 4];
        rec->text[2 * i + 1] = kDigits[bytes[i] & 0x0F];
    }
    rec->text[2 * static_cast<size_t>(count)] = '\0';
    return rec->text;
}

VQ_API int convert_from_hex(const char *text, unsigned char *out, int32_t size, int32_t *count) {
    if (text == nullptr || out == nullptr || count == nullptr || size < 0) {
        return VQ_PARAMS(Report::add, text == nullptr ? "text" : "out/size/count");
    }
    size_t length = std::strlen(text);
    if (length % 2 != 0 || length / 2 > static_cast<size_t>(size)) {
        return VQ_PARAMS(Report::add, length % 2 != 0 ? "odd length" : "size");
    }
    // Checked in full first, so that a bad text leaves out untouched.
    for (size_t i = 0; i < length; ++i) {
        if (digit_value(text[i]) < 0) {
            return VQ_PARAMS(Report::add, "digit");
        }
    }
    for (size_t i = 0; i < length; i += 2) {
        out[i / 2] = static_cast<unsigned char>(digit_value(text[i]) << 4 | digit_value(text[i + 1]));
    }
    *count = static_cast<int32_t>(length / 2);
    return 1;
}

}  // extern "C"
