// Allocation tracker: per-thread records of the blocks, list handles, streams
// and descriptors made through the sl_debug_ calls, guard bytes behind every
// tracked block, dumps to standard output and the unfreed-object report in the
// debug malloc file.
//
// Each tracked object has one TrackRecord, heap-allocated with the plain C
// library and linked newest first into the thread's chain. Lookups walk the
// chain; every walk is bounded by the number of records on it, so a damaged
// chain that loops is reported as "chain loop" instead of hanging the caller.
#include "vq_glob/memory.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "internal/debug_record.h"
#include "internal/tracker_state.h"
#include "platform/platform.h"
#include "vq_glob/llist.h"


namespace vq::memory {

// One tracked object. check is the XOR of the fields before it, so that a
// record overwritten by a stray write is told from an intact one.
struct TrackRecord {
    int32_t line;
    char file[256];
    void *block;
    uint32_t size;
    uint8_t check;
    uint32_t kind;
    TrackRecord *next;
};

namespace {

// Kinds of tracked objects, numbered in the order the report lists them.
enum Kind : uint32_t {
    kContextHandle = 1,
    kListHandle = 2,
    kStream = 3,
    kDescriptor = 4,  // a descriptor from open / wopen; block holds the number
    kMalloc = 5,
};

constexpr size_t kSlack = 100;      // extra bytes behind every tracked block
constexpr size_t kGuardBytes = 10;  // of which the first ten are the guard 0..9
// The record holds the size in 32 bits, and size + kSlack must not wrap.
constexpr size_t kMaxTrackedSize = 0xFFFFFFFFU - kSlack;
constexpr int32_t kChainDumpEvery = 10000;

// Dump levels: failures are the most important, the history the least.
constexpr int32_t kLevelFailure = 100;
constexpr int32_t kLevelChainLength = 50;
constexpr int32_t kLevelHistory = -2;

// Threads that have tracking on. While it is zero no thread tracks, and a
// tracked call is this one load and the plain call, without even looking up
// the thread's record. A thread's own increment is visible to its own loads,
// which is all the per-thread flag behind it needs.
std::atomic<int> g_tracking_threads{0};

// The calling thread's tracker when tracking is on for it, else null.
[[gnu::noinline]] TrackerState *active_slow() {
    debug::DebugRecord *rec = debug::record();
    if (rec == nullptr || rec->tracker.tracking == 0) {
        return nullptr;
    }
    return &rec->tracker;
}

inline bool anyone_tracking() { return g_tracking_threads.load(std::memory_order_relaxed) != 0; }

inline TrackerState *active() {
    if (!anyone_tracking()) [[likely]] {
        return nullptr;
    }
    return active_slow();
}

const char *place_name(const char *file) { return file != nullptr ? file : "(null)"; }

unsigned long long address_of(const void *p) {
    return static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p));
}

// A record's file name, terminated even when the record was overwritten.
struct RecordName {
    char text[sizeof(TrackRecord::file)];
    explicit RecordName(const TrackRecord &rec) {
        std::memcpy(text, rec.file, sizeof(text) - 1);
        text[sizeof(text) - 1] = '\0';
    }
};

uint8_t xor_bytes(const void *data, size_t size, uint8_t acc) {
    const auto *bytes = static_cast<const unsigned char *>(data);
    for (size_t i = 0; i < size; ++i) {
        acc ^= bytes[i];
    }
    return acc;
}

// XOR of the fields before check (records are zero-filled, so the padding
// between them, left out here, would add nothing).
uint8_t check_of(const TrackRecord &rec) {
    uint8_t acc = xor_bytes(&rec.line, sizeof(rec.line), 0);
    acc = xor_bytes(rec.file, sizeof(rec.file), acc);
    acc = xor_bytes(&rec.block, sizeof(rec.block), acc);
    return xor_bytes(&rec.size, sizeof(rec.size), acc);
}

void write_guard(void *block, uint32_t size) {
    auto *guard = static_cast<unsigned char *>(block) + size;
    for (size_t i = 0; i < kGuardBytes; ++i) {
        guard[i] = static_cast<unsigned char>(i);
    }
}

bool guard_intact(const void *block, uint32_t size) {
    const auto *guard = static_cast<const unsigned char *>(block) + size;
    for (size_t i = 0; i < kGuardBytes; ++i) {
        if (guard[i] != i) {
            return false;
        }
    }
    return true;
}

// Sizes are summed in 32 bits as the state holds them; wrapping is defined.
void add_bytes(TrackerState &st, uint32_t size) {
    st.current_bytes = static_cast<int32_t>(static_cast<uint32_t>(st.current_bytes) + size);
    if (st.current_bytes > st.peak_bytes) {
        st.peak_bytes = st.current_bytes;
    }
}

void sub_bytes(TrackerState &st, uint32_t size) {
    st.current_bytes = static_cast<int32_t>(static_cast<uint32_t>(st.current_bytes) - size);
}

// One finding in the debug malloc file, flushed at once so that it survives
// the crash it may announce. Dropped when the file could not be opened.
VQ_PRINTF(2, 3)
void note(TrackerState &st, const char *format, ...) {  // NOLINT(cert-dcl50-cpp): printf-style
    if (st.file == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    std::vfprintf(st.file, format, args);
    va_end(args);
    std::fflush(st.file);
}

// The local time as "dd-Mon-yyyy hh:mm:ss".
void time_text(char (&buf)[64]) {
    std::time_t now = std::time(nullptr);
    std::tm parts{};
    if (plat_localtime(static_cast<int64_t>(now), &parts) != 0 ||
        std::strftime(buf, sizeof(buf), "%d-%b-%Y %H:%M:%S", &parts) == 0) {
        std::snprintf(buf, sizeof(buf), "%lld", static_cast<long long>(now));
    }
}

const char *kind_name(uint32_t kind) {
    switch (kind) {
        case kContextHandle:
            return "context handle";
        case kListHandle:
            return "ll_list handle";
        case kStream:
            return "fopen";
        case kDescriptor:
            return "open";
        default:
            return "malloc";
    }
}

// Calls visit for each record, newest first. A walk that takes more steps
// than there are records has met a record twice: it writes "chain loop" to out
// and stops, returning false.
template <typename Visit>
bool walk_chain(const TrackerState &st, std::FILE *out, Visit visit) {
    uint32_t steps = 0;
    for (TrackRecord *rec = st.chain; rec != nullptr; rec = rec->next) {
        if (++steps > st.live_records) {
            if (out != nullptr) {
                std::fputs("chain loop\n", out);
                std::fflush(out);
            }
            return false;
        }
        visit(*rec);
    }
    return true;
}

// A dump to standard output, made when the dump level is set and level is at
// least the dump level. The records follow in sections by kind, each opened by
// a MARK line.
void dump(const TrackerState &st, const char *file, int32_t line, const char *reason, int32_t level) {
    if (st.dump_level == 0 || level < st.dump_level) {
        return;
    }
    char when[64];
    time_text(when);
    std::printf("DUMP HEADER : chain len %ld, pid %ld\n", static_cast<long>(st.node_counter),
                static_cast<long>(plat_process_id()));
    std::printf("CALLED FROM : file %s line %d\n", place_name(file), line);
    std::printf("DUMP REASON : %s\n", reason);
    std::printf("TIME        : %s\n", when);
    std::printf("PEAK MEM %d, CURRENT MEM %d\n", st.peak_bytes, st.current_bytes);
    for (uint32_t kind = kContextHandle; kind <= kMalloc; ++kind) {
        bool marked = false;
        bool whole = walk_chain(st, stdout, [&](const TrackRecord &rec) {
            if (rec.kind != kind) {
                return;
            }
            if (!marked) {
                std::printf("MARK %s\n", kind_name(kind));
                marked = true;
            }
            std::printf("%8llX %8ld %s/%d\n", address_of(rec.block), static_cast<long>(rec.size),
                        RecordName(rec).text, rec.line);
        });
        if (!whole) {
            break;
        }
    }
    std::fflush(stdout);
}

void malloc_failed(TrackerState &st, const char *file, int32_t line) {
    note(st, "Malloc failed in %s/%d!!!!\n", place_name(file), line);
    dump(st, file, line, "Malloc failed", kLevelFailure);
}

// Creates the record of a new object and links it in front of the chain; null
// when no memory is left for it.
TrackRecord *add_record(TrackerState &st, const char *file, int32_t line, void *block, uint32_t size,
                        uint32_t kind) {
    st.node_counter = static_cast<int32_t>(static_cast<uint32_t>(st.node_counter) + 1);
    if (st.node_counter % kChainDumpEvery == 0) {
        dump(st, file, line, "chain length", kLevelChainLength);
        dump(st, file, line, "chain length - history", kLevelHistory);
    }
    auto *rec = static_cast<TrackRecord *>(std::calloc(1, sizeof(TrackRecord)));
    if (rec == nullptr) {
        return nullptr;
    }
    // The previous record is forgotten when it is freed, so meeting its
    // address (or the block's) again means the heap handed out live memory.
    if (static_cast<void *>(rec) == block || rec == st.prev_record) {
        dump(st, file, line, "ptr == lv->prev_malloc_entry ptr", kLevelFailure);
    }
    rec->line = line;
    std::strncpy(rec->file, place_name(file), sizeof(rec->file) - 1);
    rec->block = block;
    rec->size = size;
    rec->kind = kind;
    rec->check = check_of(*rec);
    rec->next = st.chain;
    st.chain = rec;
    ++st.live_records;
    st.prev_record = rec;
    return rec;
}

// The link that points at object's record of the given kind, or null.
TrackRecord **find_record(TrackerState &st, const void *object, uint32_t kind) {
    uint32_t steps = 0;
    for (TrackRecord **link = &st.chain; *link != nullptr; link = &(*link)->next) {
        if (++steps > st.live_records) {
            note(st, "chain loop\n");
            return nullptr;
        }
        if ((*link)->block == object && (*link)->kind == kind) {
            return link;
        }
    }
    return nullptr;
}

void unlink_record(TrackerState &st, TrackRecord **link) {
    TrackRecord *rec = *link;
    *link = rec->next;
    --st.live_records;
    if (st.prev_record == rec) {
        st.prev_record = nullptr;
    }
    std::free(rec);
}

// Reports a damaged record or, for a block, a damaged guard. The guard is
// only looked at when the record is intact: a damaged size could point it
// anywhere.
void verify(TrackerState &st, const TrackRecord &rec, const char *file, int32_t line) {
    if (rec.check != check_of(rec)) {
        note(st, "memory record overwritten for block %016llX, checked in %s/%d\n", address_of(rec.block),
             place_name(file), line);
        return;
    }
    if (rec.kind == kMalloc && !guard_intact(rec.block, rec.size)) {
        note(st, "memory overwritten after block %016llX size %u allocated in %s/%d, checked in %s/%d\n",
             address_of(rec.block), rec.size, RecordName(rec).text, rec.line, place_name(file), line);
    }
}

void report_unknown(TrackerState &st, uint32_t kind, const char *file, int32_t line) {
    const char *where = place_name(file);
    switch (kind) {
        case kContextHandle:
            note(st, "free on unallocated context handle line %s/%d\n", where, line);
            break;
        case kListHandle:
            note(st, "free on unallocated ll_list handle line %s/%d\n", where, line);
            break;
        case kStream:
            note(st, "fclose of unopened space in line %s/%d\n", where, line);
            break;
        case kDescriptor:
            note(st, "close of unopened descriptor in line %s/%d\n", where, line);
            break;
        default:
            note(st, "free of unallocated space in line %s/%d\n", where, line);
            break;
    }
}

// Records an opened object (stream, descriptor, handle). Without memory for
// the record the object is still the caller's, only untracked.
void track_object(TrackerState &st, const char *file, int32_t line, void *object, uint32_t kind) {
    if (add_record(st, file, line, object, 0, kind) == nullptr) {
        malloc_failed(st, file, line);
    }
}

// Drops the record of an object about to be closed; false, after reporting,
// when the object has none.
bool forget_object(TrackerState &st, const char *file, int32_t line, const void *object, uint32_t kind) {
    TrackRecord **link = find_record(st, object, kind);
    if (link == nullptr) {
        report_unknown(st, kind, file, line);
        return false;
    }
    verify(st, **link, file, line);
    unlink_record(st, link);
    return true;
}

// A descriptor's record holds its number where other records hold a pointer;
// the kind keeps the two apart in every lookup.
void *descriptor_key(int fd) {
    return reinterpret_cast<void *>(static_cast<intptr_t>(fd));  // NOLINT(performance-no-int-to-ptr)
}

void *tracked_malloc(TrackerState &st, const char *file, int32_t line, size_t size) {
    if (size > kMaxTrackedSize) {
        malloc_failed(st, file, line);
        return nullptr;
    }
    void *block = std::malloc(size + kSlack);
    if (block == nullptr) {
        malloc_failed(st, file, line);
        return nullptr;
    }
    auto size32 = static_cast<uint32_t>(size);
    if (add_record(st, file, line, block, size32, kMalloc) == nullptr) {
        // The block is good, only its record is missing: the caller gets it
        // untracked rather than a failure the plain call would not have had.
        malloc_failed(st, file, line);
        return block;
    }
    add_bytes(st, size32);
    write_guard(block, size32);
    return block;
}

void tracked_free(TrackerState &st, const char *file, int32_t line, void *block) {
    if (block == nullptr) {
        note(st, "free of NULL space in line %s/%d\n", place_name(file), line);
        return;
    }
    TrackRecord **link = find_record(st, block, kMalloc);
    if (link != nullptr) {
        verify(st, **link, file, line);
        sub_bytes(st, (*link)->size);
        unlink_record(st, link);
    } else {
        report_unknown(st, kMalloc, file, line);
    }
    std::free(block);
}

void *tracked_realloc(TrackerState &st, const char *file, int32_t line, void *block, size_t size) {
    if (block == nullptr) {
        return tracked_malloc(st, file, line, size);
    }
    if (size > kMaxTrackedSize) {
        malloc_failed(st, file, line);
        return nullptr;
    }
    TrackRecord **link = find_record(st, block, kMalloc);
    if (link == nullptr) {
        note(st, "realloc of unallocated space in line %s/%d\n", place_name(file), line);
    } else {
        verify(st, **link, file, line);
    }
    void *moved = std::realloc(block, size + kSlack);
    if (moved == nullptr) {
        malloc_failed(st, file, line);
        return nullptr;  // the old block and its record stay as they were
    }
    auto size32 = static_cast<uint32_t>(size);
    if (link == nullptr) {
        // A block the tracker did not know now has room for a guard: from
        // here on it is tracked like any other.
        if (add_record(st, file, line, moved, size32, kMalloc) == nullptr) {
            malloc_failed(st, file, line);
            return moved;
        }
    } else {
        TrackRecord &rec = **link;
        sub_bytes(st, rec.size);
        rec.block = moved;
        rec.size = size32;
        rec.check = check_of(rec);
    }
    add_bytes(st, size32);
    write_guard(moved, size32);
    return moved;
}

// The busiest calls keep their fast path free of everything but the load and
// the plain call's tail call; the rest of the work lives out of line here.
[[gnu::noinline]] void *malloc_slow(const char *file, int32_t line, size_t size) {
    TrackerState *st = active_slow();
    return st != nullptr ? tracked_malloc(*st, file, line, size) : std::malloc(size);
}

[[gnu::noinline]] void *realloc_slow(const char *file, int32_t line, void *block, size_t size) {
    TrackerState *st = active_slow();
    return st != nullptr ? tracked_realloc(*st, file, line, block, size) : std::realloc(block, size);
}

[[gnu::noinline]] void free_slow(const char *file, int32_t line, void *block) {
    if (TrackerState *st = active_slow()) {
        tracked_free(*st, file, line, block);
    } else {
        std::free(block);
    }
}

char *tracked_strdup(TrackerState &st, const char *file, int32_t line, const char *text) {
    char *copy = nullptr;
    if (text != nullptr) {
        size_t size = std::strlen(text) + 1;
        copy = static_cast<char *>(tracked_malloc(st, file, line, size));
        if (copy != nullptr) {
            std::memcpy(copy, text, size);
        }
    }
    if (copy == nullptr) {
        note(st, "strdup failed in %s/%d!!!!\n", place_name(file), line);
    }
    return copy;
}

// One line of the report: the objects of one kind made at one place.
struct PlaceTotal {
    int count = 0;
    long long bytes = 0;
    const void *newest = nullptr;
};

using PlaceKey = std::tuple<uint32_t, std::string, int32_t>;  // kind, file, line

void write_report(TrackerState &st, const char *reason) {
    std::FILE *out = st.file;
    if (out == nullptr) {
        return;
    }
    char when[64];
    time_text(when);
    std::fprintf(out, "INFO HEADER : chain len %ld, pid %ld\n", static_cast<long>(st.node_counter),
                 static_cast<long>(plat_process_id()));
    std::fprintf(out, "INFO REASON : %s\n", reason != nullptr ? reason : "");
    std::fprintf(out, "TIME        : %s\n", when);
    std::fprintf(out, "PEAK MEM %d, CURRENT MEM %d\n\n", st.peak_bytes, st.current_bytes);
    std::fputs("UNFREED MEMORY :\n", out);
    try {
        std::map<PlaceKey, PlaceTotal> totals;
        walk_chain(st, out, [&](const TrackRecord &rec) {
            PlaceTotal &total = totals[PlaceKey{rec.kind, RecordName(rec).text, rec.line}];
            if (total.count++ == 0) {
                total.newest = rec.block;
            }
            total.bytes += rec.size;
        });
        for (const auto &[key, total] : totals) {
            const auto &[kind, file, line] = key;
            char place[300];
            std::snprintf(place, sizeof(place), "%s/%d", file.c_str(), line);
            switch (kind) {
                case kContextHandle:
                    std::fprintf(out, "%-30s %5d unfreed context handle \n", place, total.count);
                    break;
                case kListHandle:
                    std::fprintf(out, "%-30s %5d unfreed ll_list handle \n", place, total.count);
                    break;
                case kStream:
                    std::fprintf(out, "%-30s %5d unclosed fopen \n", place, total.count);
                    break;
                case kDescriptor:
                    std::fprintf(out, "%-30s %5d unclosed open \n", place, total.count);
                    break;
                default:
                    std::fprintf(out, "%-30s %5d (%5lld) unfreed malloc %016llX\n", place, total.count,
                                 total.bytes, address_of(total.newest));
                    break;
            }
        }
    } catch (...) {
        std::fputs("report incomplete: out of memory\n", out);
    }
    std::fputs("ENDOF UNFREED MEMORY\n", out);
    std::fputs("===========================================\n", out);
    std::fflush(out);
}

int read_mode(int flags, va_list args) { return plat_crt_open_needs_mode(flags) ? va_arg(args, int) : 0; }

// The ps command line takes the file name unquoted, so only names made of
// characters the shell passes through as they are qualify.
[[maybe_unused]] bool shell_safe(const std::string &name) {
    auto plain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               (c != '\0' && std::strchr("/._+,:@=-", c) != nullptr);
    };
    return !name.empty() && std::all_of(name.begin(), name.end(), plain);
}

}  // namespace

void TrackerState::release() {
    if (tracking != 0) {
        tracking = 0;
        g_tracking_threads.fetch_sub(1, std::memory_order_relaxed);
    }
    if (file != nullptr) {
        std::fclose(file);
        file = nullptr;
    }
    // Records are freed only when the chain is known to end; a looping chain
    // is left alone rather than freed twice.
    uint32_t steps = 0;
    TrackRecord *rec = chain;
    while (rec != nullptr && steps < live_records) {
        rec = rec->next;
        ++steps;
    }
    if (rec == nullptr) {
        for (rec = chain; rec != nullptr;) {
            TrackRecord *next = rec->next;
            std::free(rec);
            rec = next;
        }
    }
    chain = nullptr;
    prev_record = nullptr;
    live_records = 0;
}

}  // namespace vq::memory

using vq::memory::active;
using vq::memory::TrackerState;
namespace mem = vq::memory;

// ---- tracker control ------------------------------------------------------

extern "C" VQ_API void sl_malloc_init(const char *file_name) {
    vq::debug::DebugRecord *rec = vq::debug::record();
    if (rec == nullptr) {
        return;
    }
    TrackerState &st = rec->tracker;
    st.release();
    st.tracking = 1;
    mem::g_tracking_threads.fetch_add(1, std::memory_order_relaxed);
    st.current_bytes = 0;
    st.peak_bytes = 0;
    st.node_counter = 0;
    try {
        st.file_name = file_name != nullptr ? file_name : "";
    } catch (...) {
        st.file_name.clear();
    }
    if (file_name == nullptr) {
        errno = EINVAL;
    } else {
        st.file = std::fopen(file_name, "a");
    }
    if (st.file == nullptr) {
        std::perror("error opening debug malloc file");
    }
}

extern "C" VQ_API void sl_malloc_set_dump(int32_t level) {
    if (TrackerState *st = active()) {
        st->dump_level = level;
    }
}

extern "C" VQ_API void sl_malloc_dump_info(const char *reason) {
    if (TrackerState *st = active()) {
        mem::write_report(*st, reason);
    }
}

extern "C" VQ_API void sl_malloc_end(void) {
    TrackerState *st = active();
    if (st == nullptr) {
        return;
    }
    if (st->file != nullptr) {
        std::fputs("=====================DEBUG MALLOC SUMMARY=====================\n", st->file);
    }
    mem::write_report(*st, "end of tracking");
    if (st->file != nullptr) {
        std::fputs("=====================DEBUG MALLOC END=========================\n", st->file);
    }
    st->dump_level = 0;
    st->release();
}

extern "C" VQ_API void sl_malloc_ps(const char *file, int32_t line) {
    TrackerState *st = active();
    if (st == nullptr || st->file == nullptr || !plat_has_process_memory_command()) {
        return;
    }
    mem::note(*st, "PS - CALLED FROM : file %s line %d\n", mem::place_name(file), line);
    if (!mem::shell_safe(st->file_name)) {
        mem::note(*st, "ps not issued: the file name needs shell quoting\n");
        return;
    }
    try {
        std::string command = plat_process_memory_command(plat_process_id(), st->file_name);
        mem::note(*st, "issuing: <%s>\n", command.c_str());
        // The command appends to the file itself; whether it ran shows there.
        int exit_status = 0;
        plat_run_shell(command.c_str(), &exit_status);
    } catch (...) {
        mem::note(*st, "ps not issued: out of memory\n");
    }
}

// ---- blocks -----------------------------------------------------------------

extern "C" VQ_API void *sl_debug_malloc(const char *file, int32_t line, size_t size) {
    if (!mem::anyone_tracking()) [[likely]] {
        return std::malloc(size);
    }
    return mem::malloc_slow(file, line, size);
}

extern "C" VQ_API void *sl_debug_realloc(const char *file, int32_t line, void *block, size_t size) {
    if (!mem::anyone_tracking()) [[likely]] {
        return std::realloc(block, size);
    }
    return mem::realloc_slow(file, line, block, size);
}

extern "C" VQ_API char *sl_debug_strdup(const char *file, int32_t line, const char *text) {
    if (TrackerState *st = active()) {
        return mem::tracked_strdup(*st, file, line, text);
    }
    return sl_strdup(text);
}

extern "C" VQ_API void sl_debug_free(const char *file, int32_t line, void *block) {
    if (!mem::anyone_tracking()) [[likely]] {
        std::free(block);
        return;
    }
    mem::free_slow(file, line, block);
}

extern "C" VQ_API void sl_debug_sl_free(const char *file, int32_t line, void *block) {
    sl_debug_free(file, line, block);
}

extern "C" VQ_API void sl_debug_new_reg_free(const char *file, int32_t line, void *block) {
    sl_debug_free(file, line, block);
}

extern "C" VQ_API char *sl_debug_tempnam(const char *file, int32_t line, const char *dir,
                                         const char *prefix) {
    char *name = plat_crt_tempnam(dir, prefix);
    TrackerState *st = active();
    if (st == nullptr || name == nullptr) {
        return name;
    }
    // The C library's block has no guard; a tracked copy takes its place.
    char *copy = mem::tracked_strdup(*st, file, line, name);
    std::free(name);
    return copy;
}

extern "C" VQ_API void sl_free(void *block) { std::free(block); }

extern "C" VQ_API char *sl_strdup(const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    size_t size = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(std::malloc(size));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return copy;
}

// ---- streams and descriptors ---------------------------------------------

namespace {

FILE *track_stream(const char *file, int32_t line, FILE *stream) {
    if (stream != nullptr) {
        if (TrackerState *st = active()) {
            mem::track_object(*st, file, line, stream, mem::kStream);
        }
    }
    return stream;
}

int track_descriptor(const char *file, int32_t line, int fd) {
    if (fd >= 0) {
        if (TrackerState *st = active()) {
            mem::track_object(*st, file, line, mem::descriptor_key(fd), mem::kDescriptor);
        }
    }
    return fd;
}

}  // namespace

extern "C" VQ_API FILE *sl_debug_fopen(const char *file, int32_t line, const char *name, const char *mode) {
    if (name == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return track_stream(file, line, std::fopen(name, mode));
}

extern "C" VQ_API int sl_debug_open(const char *file, int32_t line, const char *name, int flags, ...) {
    va_list args;
    va_start(args, flags);
    int mode = mem::read_mode(flags, args);
    va_end(args);
    if (name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return track_descriptor(file, line, plat_crt_open(name, flags, mode));
}

extern "C" VQ_API FILE *sl_debug_fdopen(const char *file, int32_t line, int fd, const char *mode) {
    if (fd < 0 || mode == nullptr) {
        errno = fd < 0 ? EBADF : EINVAL;
        return nullptr;
    }
    FILE *stream = plat_crt_fdopen(fd, mode);
    if (stream != nullptr) {
        if (TrackerState *st = active()) {
            // The stream now owns the descriptor and closes it with itself.
            if (mem::TrackRecord **link = mem::find_record(*st, mem::descriptor_key(fd), mem::kDescriptor)) {
                mem::unlink_record(*st, link);
            }
        }
    }
    return track_stream(file, line, stream);
}

extern "C" VQ_API int sl_debug_wopen(const char *file, int32_t line, const wchar_t *name, int flags, ...) {
    va_list args;
    va_start(args, flags);
    int mode = mem::read_mode(flags, args);
    va_end(args);
    if (name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return track_descriptor(file, line, plat_crt_wopen(name, flags, mode));
}

extern "C" VQ_API FILE *sl_debug_wfopen(const char *file, int32_t line, const wchar_t *name,
                                        const wchar_t *mode) {
    if (name == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return track_stream(file, line, plat_crt_wfopen(name, mode));
}

extern "C" VQ_API FILE *sl_debug_fsopen(const char *file, int32_t line, const char *name, const char *mode,
                                        int share) {
    if (name == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return track_stream(file, line, plat_crt_fsopen(name, mode, share));
}

extern "C" VQ_API int sl_debug_fclose(const char *file, int32_t line, FILE *stream) {
    TrackerState *st = active();
    if (stream == nullptr) {
        if (st != nullptr) {
            mem::report_unknown(*st, mem::kStream, file, line);
        }
        errno = EINVAL;
        return EOF;
    }
    if (st != nullptr) {
        mem::forget_object(*st, file, line, stream, mem::kStream);
    }
    return std::fclose(stream);
}

extern "C" VQ_API int sl_debug_close(const char *file, int32_t line, int fd) {
    TrackerState *st = active();
    if (st != nullptr) {
        mem::forget_object(*st, file, line, mem::descriptor_key(fd), mem::kDescriptor);
    }
    if (fd < 0) {
        errno = EBADF;
        return -1;
    }
    return plat_crt_close(fd);
}

// ---- list handles -----------------------------------------------------------

extern "C" VQ_API void *sl_debug_ll_init_list(const char *file, int32_t line) {
    void *list = ll_init_list();
    if (list != nullptr) {
        if (TrackerState *st = active()) {
            mem::track_object(*st, file, line, list, mem::kListHandle);
        }
    }
    return list;
}

extern "C" VQ_API void sl_debug_ll_dispose_list(const char *file, int32_t line, void **list) {
    void *handle = list != nullptr ? *list : nullptr;
    if (TrackerState *st = active()) {
        if (handle == nullptr) {
            mem::report_unknown(*st, mem::kListHandle, file, line);
        } else {
            mem::forget_object(*st, file, line, handle, mem::kListHandle);
        }
    }
    if (handle != nullptr) {
        ll_dispose_list(list);
    }
}

// ---- parser context handles ----------------------------------------------------

namespace vq::memory {

void track_context_handle(const char *file, int32_t line, void *handle) {
    if (TrackerState *st = active()) {
        track_object(*st, file, line, handle, kContextHandle);
    }
}

void forget_context_handle(const char *file, int32_t line, const void *handle) {
    if (TrackerState *st = active()) {
        if (handle == nullptr) {
            report_unknown(*st, kContextHandle, file, line);
        } else {
            forget_object(*st, file, line, handle, kContextHandle);
        }
    }
}

}  // namespace vq::memory
