// The parse cache: a fixed array of slots per thread, tied to one command
// table. A slot keeps the newest line that hashed to it with its result; a
// line seen before is served from its slot without parsing.
#include <cstring>
#include <new>
#include <string>

#include "cli/cli_state.h"
#include "internal/trace.h"

namespace vq::cli {
namespace {

constexpr int32_t kMaxSlots = 65521;  // the largest prime below 2^16
constexpr const char *kCacheModule = "cli_cache";

bool is_prime(int32_t n) {
    if (n < 2) {
        return false;
    }
    for (int32_t d = 2; d * d <= n; ++d) {
        if (n % d == 0) {
            return false;
        }
    }
    return true;
}

// A prime slot count spreads hashes that differ in their low bits only.
int32_t slot_count(int32_t size) {
    if (size >= kMaxSlots) {
        return kMaxSlots;
    }
    int32_t n = size < 2 ? 2 : size;
    while (!is_prime(n)) {
        ++n;
    }
    return n;
}

// The little-endian 32-bit word at word position pos; bytes past the line's
// end count as zero (the last sampled word may reach past it).
uint32_t word_at(const unsigned char *bytes, uint32_t n, uint32_t pos) {
    uint32_t word = 0;
    for (uint32_t k = 0; k < 4; ++k) {
        uint64_t at = static_cast<uint64_t>(pos) * 4 + k;
        if (at < n) {
            word |= static_cast<uint32_t>(bytes[at]) << (8 * k);
        }
    }
    return word;
}

}  // namespace
}  // namespace vq::cli

using namespace vq::cli;
using vq::raise::Report;

extern "C" {

VQ_API uint32_t cc_hash_command_line(const char *line, int32_t length) {
    if (line == nullptr || length < 0) {
        return 0;
    }
    auto n = static_cast<uint32_t>(length);
    const auto *bytes = reinterpret_cast<const unsigned char *>(line);
    if (n < 4) {
        uint32_t v = 0;
        for (uint32_t i = 0; i < n; ++i) {
            // the byte sign-extended: 0x80 and above set every higher bit
            v = (v << 8) | static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(bytes[i])));
        }
        return n ^ v;
    }
    // Sparse on purpose: words 1, 2, 4, 8, ... only; word 0 never counts.
    uint32_t hash = n;
    for (uint64_t pos = 1; pos <= n / 4; pos *= 2) {
        hash ^= word_at(bytes, n, static_cast<uint32_t>(pos));
    }
    return hash;
}

VQ_API int cc_set_command_table_cache(const char *cache_id, int32_t size) {
    CliRecord *st = initialised_record();
    if (st == nullptr || size < 0) {
        return VQ_PARAMS(Report::fresh, "size");
    }
    if (size == 0) {
        st->cache.reset();
        return 1;
    }
    try {
        auto cache = std::make_unique<Cache>();
        cache->id = cache_id != nullptr ? cache_id : "";
        cache->table = st->table;
        cache->slots.resize(static_cast<size_t>(slot_count(size)));
        st->cache = std::move(cache);
        return 1;
    } catch (const std::bad_alloc &) {
        return VQ_NO_MEMORY(Report::fresh, kCacheModule);
    }
}

VQ_API int cc_dcl_parse(const char *line) {
    CliRecord *st = initialised_record();
    if (st == nullptr || line == nullptr || st->cache == nullptr || st->cache->table != st->table) {
        return cli_dcl_parse(line);
    }
    Cache &cache = *st->cache;
    ++cache.lookups;
    size_t length = std::strcspn(line, "\n");
    uint32_t hash = cc_hash_command_line(line, static_cast<int32_t>(length));
    size_t index = hash % cache.slots.size();
    vq::debug::trace_bit(kTraceCacheBit, "in cc_dcl_parse(): cache_id=<%s> salt=<%d> idx=<%d> line=<%s>\n",
                         cache.id.c_str(), static_cast<int>(hash), static_cast<int>(index), line);
    CacheSlot &slot = cache.slots[index];
    if (slot.used && slot.hash == hash && slot.changes == st->changes && slot.line.size() == length &&
        std::memcmp(slot.line.data(), line, length) == 0) {
        st->current = slot.result;
        st->err_code = ERR_CLI_NOERR;
        st->reset_walks();
        ++cache.hits;
        return 1;
    }
    if (cli_dcl_parse(line) == 0) {
        return 0;
    }
    try {
        slot.line.assign(line, length);
        slot.hash = hash;
        slot.changes = st->changes;
        slot.result = st->current;
        slot.used = true;
    } catch (const std::bad_alloc &) {
        slot.used = false;  // the parse stands; only the slot is lost
    }
    return 1;
}

VQ_API int cc_get_cache_statistics(int32_t *lookups, int32_t *hits, int32_t *hit_rate) {
    CliRecord *st = record();
    const Cache *cache = st != nullptr ? st->cache.get() : nullptr;
    int32_t l = cache != nullptr ? cache->lookups : 0;
    int32_t h = cache != nullptr ? cache->hits : 0;
    if (lookups != nullptr) {
        *lookups = l;
    }
    if (hits != nullptr) {
        *hits = h;
    }
    if (hit_rate != nullptr) {
        *hit_rate = l > 0 ? static_cast<int32_t>(static_cast<int64_t>(h) * 100 / l) : 0;
    }
    return cache != nullptr ? 1 : 0;
}

}  // extern "C"
