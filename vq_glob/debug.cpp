// Debug tracing: the per-thread channel mask, the debug flag and the trace
// output. The debug module's record also carries the allocation tracker's
// state; its frame runs first at thread start and last at thread end.
#include "vq_glob/dbg.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "internal/ascii.h"
#include "internal/debug_channels.h"
#include "internal/debug_record.h"
#include "internal/trace.h"
#include "platform/platform.h"
#include "vq_glob/hex.h"
#include "vq_glob/str.h"

namespace vq::frame {
constinit const Module kDebugModule = debug::Frame::module("dbg");
}  // namespace vq::frame

namespace vq::debug {
namespace {

// Bit n of a channel value is bit n%8 of byte n/8, the mask's own layout.
bool shares_bit(const unsigned char *mask, const unsigned char *channels, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        if ((mask[i] & channels[i]) != 0) {
            return true;
        }
    }
    return false;
}

// Set, and never cleared, once any thread's settings may let a trace line
// through. Until then every check of a channel can answer "off" without
// looking up the calling thread's record, which keeps tracing free for
// programs that never turn it on. Each thread changes only its own
// settings, and a thread sees its own change of the flag, so a relaxed flag
// is enough: another thread that misses the change still has nothing on.
std::atomic<bool> g_tracing_seen{false};

bool tracing_never_on() { return !g_tracing_seen.load(std::memory_order_relaxed); }

// Raises the flag when the record's settings now let something through.
void note_settings(const DebugRecord &rec) {
    static const unsigned char kNone[kMaskBytes] = {0};
    if (rec.debug_flag != 0 || std::memcmp(rec.mask, kNone, kMaskBytes) != 0) {
        g_tracing_seen.store(true, std::memory_order_relaxed);
    }
}

bool passes(const DebugRecord &rec, int32_t channels) {
    if (channels == 0 || rec.debug_flag != 0) {
        return true;
    }
    auto bits = static_cast<uint32_t>(channels);
    unsigned char bytes[4] = {static_cast<unsigned char>(bits & 0xFF), static_cast<unsigned char>((bits >> 8) & 0xFF),
                              static_cast<unsigned char>((bits >> 16) & 0xFF),
                              static_cast<unsigned char>((bits >> 24) & 0xFF)};
    return shares_bit(rec.mask, bytes, 4);
}

// Writes one formatted line. A trace file that refuses the write (a full
// disk, usually) is emptied so that tracing can go on, and the line retried.
void write_line(DebugRecord &rec, const char *format, va_list args) {
    if (rec.output == nullptr) {
        std::vfprintf(stdout, format, args);
        std::fflush(stdout);
        return;
    }
    va_list retry;
    va_copy(retry, args);
    int written = std::vfprintf(rec.output, format, args);
    if (written <= 0 && format[0] != '\0') {
        std::clearerr(rec.output);
        if (plat_truncate_stream(rec.output) == 0) {
            std::fputs("Failed to write to debug file - cleared all previous information in this file\n\n",
                       rec.output);
            std::vfprintf(rec.output, format, retry);
        }
    }
    va_end(retry);
    std::fflush(rec.output);
}

void set_bit(unsigned char *mask, int32_t bit, bool on) {
    if (bit < 0 || bit >= kMaskBytes * 8) {
        return;
    }
    auto flag = static_cast<unsigned char>(1u << (bit % 8));
    if (on) {
        mask[bit / 8] |= flag;
    } else {
        mask[bit / 8] &= static_cast<unsigned char>(~flag);
    }
}

// The first-character rule of a settings value: "E" off, "D" fully on, "("
// a channel list; anything else leaves the settings alone.
void apply_setting(const char *value) {
    switch (value[0]) {
    case 'E': dbg_set_debug(0); break;
    case 'D': dbg_set_debug(1); break;
    case '(': dbg_set_debug_mask_string(value); break;
    default: break;
    }
}

// Reads the first line of path (at most 264 characters, line end dropped)
// into the record's path buffer; false when the file does not open.
bool read_first_line(DebugRecord &rec, const char *path) {
    std::FILE *file = std::fopen(path, "r");
    if (file == nullptr) {
        return false;
    }
    char *line = std::fgets(rec.path_buffer, sizeof rec.path_buffer, file);
    std::fclose(file);
    if (line == nullptr) {
        rec.path_buffer[0] = '\0';
    }
    rec.path_buffer[std::strcspn(rec.path_buffer, "\r\n")] = '\0';
    return true;
}

}  // namespace
}  // namespace vq::debug

namespace vq::debug {

void trace_bit(int bit, const char *format, ...) {
    if (tracing_never_on()) {
        return;
    }
    DebugRecord *rec = record();
    if (rec == nullptr || format == nullptr || bit < 0 || bit >= kMaskBytes * 8) {
        return;
    }
    bool on = rec->debug_flag != 0 || (rec->mask[bit / 8] >> (bit % 8) & 1) != 0;
    if (!on) {
        return;
    }
    va_list args;
    va_start(args, format);
    write_line(*rec, format, args);
    va_end(args);
}

}  // namespace vq::debug

using vq::debug::DebugRecord;
using vq::debug::kMaskBytes;
using vq::debug::record;

extern "C" {

VQ_API void dbg_set_debug(int flag) {
    DebugRecord *rec = record();
    if (rec == nullptr) {
        return;
    }
    rec->debug_flag = flag;
    std::memset(rec->mask, flag == 1 ? 0xFF : 0x00, kMaskBytes);
    vq::debug::note_settings(*rec);
}

VQ_API int dbg_get_debug_flag(void) {
    DebugRecord *rec = record();
    return rec != nullptr ? rec->debug_flag : 0;
}

VQ_API void dbg_set_debug_mask_value(const unsigned char *mask8) {
    DebugRecord *rec = record();
    if (rec != nullptr && mask8 != nullptr) {
        std::memcpy(rec->mask, mask8, kMaskBytes);
        vq::debug::note_settings(*rec);
    }
}

VQ_API void dbg_clear_debug_mask(void) {
    DebugRecord *rec = record();
    if (rec != nullptr) {
        std::memset(rec->mask, 0, kMaskBytes);
    }
}

VQ_API void dbg_or_debug_mask(const unsigned char *mask8) {
    DebugRecord *rec = record();
    if (rec == nullptr || mask8 == nullptr) {
        return;
    }
    for (int i = 0; i < kMaskBytes; ++i) {
        rec->mask[i] |= mask8[i];
    }
    vq::debug::note_settings(*rec);
}

VQ_API const unsigned char *dbg_get_debug_mask(void) {
    DebugRecord *rec = record();
    return rec != nullptr ? rec->mask : nullptr;
}

// At the deepest level a push still saves, into the one entry no pop reads
// back, so a pop after too many pushes restores the ninth push's mask.
VQ_API void dbg_push_debug_mask(void) {
    DebugRecord *rec = record();
    if (rec == nullptr) {
        return;
    }
    std::memcpy(rec->saved_masks[rec->depth], rec->mask, kMaskBytes);
    if (rec->depth < vq::debug::kPushDepth) {
        ++rec->depth;
    }
}

VQ_API void dbg_pop_debug_mask(void) {
    DebugRecord *rec = record();
    if (rec == nullptr || rec->depth < 1) {
        return;
    }
    --rec->depth;
    std::memcpy(rec->mask, rec->saved_masks[rec->depth], kMaskBytes);
}

VQ_API int dbg_set_debug_output_filename(const char *path) {
    DebugRecord *rec = record();
    if (rec == nullptr || path == nullptr) {
        return 0;
    }
    std::FILE *stream = std::fopen(path, "w");
    if (stream == nullptr) {
        return 0;
    }
    rec->output = stream;
    return 1;
}

VQ_API void dbg_set_debug_output(FILE *stream) {
    DebugRecord *rec = record();
    if (rec != nullptr) {
        rec->output = stream;
    }
}

// The stream pointer stays in place on purpose: tracing again needs a new
// output first, as callers of this interface have always done.
VQ_API void dbg_close_debug_output(void) {
    DebugRecord *rec = record();
    if (rec != nullptr && rec->output != nullptr) {
        std::fclose(rec->output);
    }
}

VQ_API void dbg_str(const char *format, ...) {
    if (vq::debug::tracing_never_on()) {
        return;
    }
    DebugRecord *rec = record();
    if (rec == nullptr || format == nullptr || rec->debug_flag == 0) {
        return;
    }
    va_list args;
    va_start(args, format);
    vq::debug::write_line(*rec, format, args);
    va_end(args);
}

VQ_API void new_dbg_str(int32_t channels, const char *format, ...) {
    if (channels != 0 && vq::debug::tracing_never_on()) {
        return;
    }
    DebugRecord *rec = record();
    if (rec == nullptr || format == nullptr || !vq::debug::passes(*rec, channels)) {
        return;
    }
    va_list args;
    va_start(args, format);
    vq::debug::write_line(*rec, format, args);
    va_end(args);
}

VQ_API void large_dbg_str(const unsigned char *channels, const char *format, ...) {
    DebugRecord *rec = record();
    if (rec == nullptr || format == nullptr || channels == nullptr) {
        return;
    }
    static const unsigned char kNone[kMaskBytes] = {0};
    bool all_zero = std::memcmp(channels, kNone, kMaskBytes) == 0;
    if (!all_zero && rec->debug_flag == 0 && !vq::debug::shares_bit(rec->mask, channels, kMaskBytes)) {
        return;
    }
    va_list args;
    va_start(args, format);
    vq::debug::write_line(*rec, format, args);
    va_end(args);
}

VQ_API void new_dbg_void(int32_t channels, const void *bytes, int32_t count) {
    if (bytes == nullptr || count < 0 || dbg_check_mask(channels) == 0) {
        return;
    }
    const auto *p = static_cast<const unsigned char *>(bytes);
    for (int32_t i = 0; i < count; ++i) {
        new_dbg_str(channels, "%c", p[i]);
    }
    new_dbg_str(channels, "\n");
}

VQ_API int dbg_check_mask(int32_t channels) {
    if (channels != 0 && vq::debug::tracing_never_on()) {
        return 0;
    }
    DebugRecord *rec = record();
    return rec != nullptr && vq::debug::passes(*rec, channels) ? 1 : 0;
}

VQ_API unsigned char *dbg_mkone(int bit) {
    DebugRecord *rec = record();
    if (rec == nullptr) {
        return nullptr;
    }
    std::memset(rec->scratch_mask, 0, kMaskBytes);
    if (bit >= 0 && bit < kMaskBytes * 8) {
        rec->scratch_mask[bit / 8] = static_cast<unsigned char>(1u << (bit % 8));
    }
    return rec->scratch_mask;
}

VQ_API unsigned char *dbg_mklist(int bit, ...) {
    DebugRecord *rec = record();
    if (rec == nullptr) {
        return nullptr;
    }
    std::memset(rec->scratch_mask, 0, kMaskBytes);
    vq::debug::set_bit(rec->scratch_mask, bit, true);
    va_list args;
    va_start(args, bit);
    for (int i = 1; i < 11; ++i) {
        int next = va_arg(args, int);
        if (next == 0) {
            break;
        }
        vq::debug::set_bit(rec->scratch_mask, next, true);
    }
    va_end(args);
    return rec->scratch_mask;
}

VQ_API int32_t dbg_get_channel_bit(const char *name) {
    const vq::debug::ChannelRow *row = vq::debug::find_channel(name);
    return row != nullptr && row->bit >= 0 && row->bit < kMaskBytes * 8 ? row->bit : -1;
}

VQ_API void dbg_add_debug_mask(const char *name) {
    DebugRecord *rec = record();
    if (rec == nullptr || name == nullptr) {
        return;
    }
    using vq::ascii::equal_nocase;
    if (equal_nocase(name, "ALL")) {
        std::memset(rec->mask, 0xFF, kMaskBytes);
    } else if (equal_nocase(name, "NONE") || equal_nocase(name, "NOALL")) {
        std::memset(rec->mask, 0x00, kMaskBytes);
    } else if (std::strlen(name) >= 3 && vq::ascii::starts_with_nocase(name, "NO")) {
        vq::debug::set_bit(rec->mask, dbg_get_channel_bit(name + 2), false);
    } else {
        vq::debug::set_bit(rec->mask, dbg_get_channel_bit(name), true);
    }
    vq::debug::note_settings(*rec);
}

VQ_API void dbg_set_debug_mask_string(const char *text) {
    if (text == nullptr) {
        return;
    }
    // The tokenizer works in place; the caller's text stays as it was.
    std::string copy(text);
    if (str_init_tokens(copy.data()) == 0) {
        return;
    }
    for (const char *token = str_get_next_token(0); token != nullptr; token = str_get_next_token(0)) {
        dbg_add_debug_mask(token);
    }
}

VQ_API void dbg_init_debug(const char *name) {
    DebugRecord *rec = record();
    if (rec == nullptr || name == nullptr) {
        return;
    }
    rec->depth = 0;
    if (const char *value = std::getenv(name)) {  // NOLINT(concurrency-mt-unsafe): read once at start-up
        std::string copy(value);                     // applying it may run the tokenizer over it
        vq::debug::apply_setting(copy.c_str());
    }
    // A settings path that does not fit is not read at all, rather than a
    // truncated name that might open some other file.
    char path[sizeof rec->path_buffer];
    char directory[sizeof rec->path_buffer];
    int length = plat_system_directory(directory, sizeof directory) == 0
                     ? std::snprintf(path, sizeof path, "%s%s%s", directory, VQ_PATH_SEPARATOR_TEXT, name)
                     : std::snprintf(path, sizeof path, "%s", name);
    bool fits = length >= 0 && static_cast<size_t>(length) < sizeof path;
    if (fits && vq::debug::read_first_line(*rec, path)) {
        std::string line(rec->path_buffer);
        vq::debug::apply_setting(line.c_str());
    }
}

VQ_API const char *dbg_get_debug_mask_hex(void) {
    DebugRecord *rec = record();
    return rec != nullptr ? convert_to_hex(rec->mask, kMaskBytes) : "";
}

VQ_API const char *dbg_convert_debug_to_hex(const unsigned char *mask8) {
    return mask8 != nullptr ? convert_to_hex(mask8, kMaskBytes) : "";
}

VQ_API int32_t dbg_time_get_start_time(void) {
    return static_cast<int32_t>(static_cast<double>(std::clock()) * 1000.0 / CLOCKS_PER_SEC);
}

VQ_API void dbg_time_sum_duration_and_appearances_by_start_time(double *sum, int32_t *count, int32_t start) {
    if (sum == nullptr || count == nullptr) {
        return;
    }
    *sum += (dbg_time_get_start_time() - start) * 0.001;
    *count += 1;
}

VQ_API void dbg_time_all_summary(const char *function, double sum, int32_t count, double total) {
    DebugRecord *rec = record();
    if (rec == nullptr) {
        return;
    }
    const char *name = function != nullptr ? function : "";
    new_dbg_str(DBG_CHANNEL_STANDARD, "dbg_time_all_summary() for <%s> \n", name);
    std::FILE *out = rec->output != nullptr ? rec->output : stdout;
    std::fprintf(out, "\n==================\nSummary for function %s:\n\toccured - %d times\n", name, count);
    std::fprintf(out, "\tduration summary - %f seconds\n", sum);
    std::fprintf(out, "\taverage - %f seconds per function\n", count > 0 ? sum / count : 0.0);
    if (total > 0) {
        std::fprintf(out, "\tpartial time - %f seconds out of %f (%d%%)\n", sum, total,
                     static_cast<int>(sum * 100.0 / total));
    }
    std::fflush(out);
    new_dbg_str(DBG_CHANNEL_STANDARD, "out dbg_time_all_summary() for <%s> \n", name);
}

VQ_API void dbg_inc(void) {
    DebugRecord *rec = record();
    if (rec == nullptr) {
        return;
    }
    size_t len = std::strlen(rec->indent);
    if (len + 2 <= static_cast<size_t>(vq::debug::kIndentMax)) {
        rec->indent[len] = ' ';
        rec->indent[len + 1] = ' ';
        rec->indent[len + 2] = '\0';
    }
}

VQ_API void dbg_dec(void) {
    DebugRecord *rec = record();
    if (rec == nullptr) {
        return;
    }
    size_t len = std::strlen(rec->indent);
    if (len >= 2) {
        rec->indent[len - 2] = '\0';
    }
}

VQ_API const char *dbg_get_indent(void) {
    DebugRecord *rec = record();
    return rec != nullptr ? rec->indent : "";
}

}  // extern "C"
