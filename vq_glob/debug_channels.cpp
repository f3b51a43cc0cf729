// The channel table of debug tracing: names of the 64 trace bits.
#include "internal/debug_channels.h"

#include <iterator>
#include <string_view>

#include "internal/ascii.h"
#include "vq_glob/dbg.h"

namespace vq::debug {
namespace {

// Rows in their fixed order. Programs of the product name the same bits
// differently, so names repeat; a lookup takes the first row of a name, which
// leaves the later NETWORK (8, 11), FLOW (8), ERROR (15) and SECURITY (13)
// rows unreachable by name, as they have always been.
constexpr int32_t kOutOfRange = 67108864;  // EM_API's bit field, beyond the mask

constexpr ChannelRow row(const char *name, int32_t bit) {
    return ChannelRow{bit >= 0 && bit < 32 ? static_cast<int32_t>(1u << bit) : 0, name, bit};
}

constexpr ChannelRow kChannels[] = {
    // the library's own modules
    row("CLI", DBG_BIT_CLI), row("CLI_DUMP", DBG_BIT_CLI_DUMP), row("STANDARD", DBG_BIT_STANDARD),
    row("ENV", DBG_BIT_ENV), row("GMS", DBG_BIT_GMS), row("API", DBG_BIT_API),
    row("COMPRESSION", DBG_BIT_COMPRESSION), row("ERRMSG", DBG_BIT_ERRMSG), row("PROXY", DBG_BIT_PROXY),
    row("GF", DBG_BIT_GF), row("API_DUMP", DBG_BIT_API_DUMP), row("TIME", DBG_BIT_TIME),
    row("SEMAPH", DBG_BIT_SEMAPH), row("CLI_CACHE", DBG_BIT_CLI_CACHE), row("CRYPT", DBG_BIT_CRYPT),
    row("MISC", DBG_BIT_MISC), row("SLSEC", DBG_BIT_SLSEC), row("SHM", DBG_BIT_SHM),
    row("CONFIG", DBG_BIT_CONFIG), row("CYCLIC", DBG_BIT_CYCLIC), row("CCONF", DBG_BIT_CCONF),
    row("NETWORK", DBG_BIT_NETWORK), row("FILTER", DBG_BIT_FILTER),
    row("VQ_UPD_PASSWD", DBG_BIT_VQ_UPD_PASSWD), row("TOLV", DBG_BIT_TOLV),
    // replication programs
    row("ERROR", DBG_BIT_ERROR), row("PARSE", 8), row("PARSE_JOB", 9), row("MASTER", 10),
    row("FLOW", DBG_BIT_FLOW),
    row("KXTIME", 12), row("SUBMIT", 13), row("MASTER2", 15), row("FMONITOR", 16), row("NESTED", 17),
    row("QUEUE", 18), row("REMOTE", 19), row("EXECUTE", 20), row("BCOPY", 21), row("SECURITY", 22),
    row("LOGCMD", 23), row("MON", 24),
    // transfer daemons
    row("TVFLOW", 8), row("TVERROR", 9), row("TVCF", 10), row("TVNET", 11), row("TVPROT", 12),
    row("TVMASTER", 13), row("TVSLAVE", 14), row("TVRECOVER", 15), row("TVFILES", 16), row("TVMSG", 17),
    row("TOLVSHR", 18), row("TVMEM", 19), row("TVMISC", 20), row("TOLVD", 21), row("TVLOGIN", 22),
    row("TVBATCH", 23), row("TVMON", 24), row("SSL", 25), row("TVSEC", 26), row("TVCMD", 27),
    // datagram transfer
    row("NETWORK", 8), row("PROTOCOL", 9), row("UDP_TIME", 10), row("UDP_FLOW", 12), row("CONGESTION", 14),
    row("SESSIONS", 16), row("FLOW", 8), row("FILE", 9), row("MEMORY", 10), row("NETWORK", 11),
    row("PARAM", 12), row("SECURITY", 13), row("PROCESS", 14), row("ERROR", 15),
    // server, client and tools
    row("VQ_SERVER", 16), row("VQ_CLIENT", 17), row("VQ_CONSOLE", 18), row("VQ_MISC", 19), row("VQ_API", 20),
    row("VQ_ML", 21), row("VQ_CORE", 22), row("VQ_DMGR", 23), row("VQ_MAP", 24), row("VQ_MC", 25),
    row("EM_API", kOutOfRange), row("FILE_SYNC", 26), row("VQ_SCANNER", 27), row("VQ_ROLLBACK", 28),
    row("VQ_ERASER", 29),
    // scheduler and monitors
    row("sls_submit", 16), row("sls_active", 17), row("sls_archive", 18), row("sls_sched", 19),
    row("sls_api", 20), row("sls_perform", 21), row("FEST_FLOW", 16), row("FEST_MISC", 17),
    row("MON_FLOW", 16), row("MON_MEFORAT", 17),
};

static_assert(std::size(kChannels) == 101, "the channel table has 101 rows");

// The 32-bit channel values of dbg.h are the values of their rows.
constexpr bool value_matches(unsigned value, int bit) {
    for (const ChannelRow &r : kChannels) {
        if (r.bit == bit) {
            return static_cast<unsigned>(r.value) == value;
        }
    }
    return false;
}
static_assert(value_matches(DBG_CHANNEL_CLI, DBG_BIT_CLI) && value_matches(DBG_CHANNEL_CLI_DUMP, DBG_BIT_CLI_DUMP) &&
              value_matches(DBG_CHANNEL_STANDARD, DBG_BIT_STANDARD) && value_matches(DBG_CHANNEL_ENV, DBG_BIT_ENV) &&
              value_matches(DBG_CHANNEL_GMS, DBG_BIT_GMS) && value_matches(DBG_CHANNEL_API, DBG_BIT_API) &&
              value_matches(DBG_CHANNEL_COMPRESSION, DBG_BIT_COMPRESSION) &&
              value_matches(DBG_CHANNEL_FLOW, DBG_BIT_FLOW) && value_matches(DBG_CHANNEL_ERROR, DBG_BIT_ERROR));

}  // namespace

const ChannelRow *find_channel(const char *name) {
    if (name == nullptr) {
        return nullptr;
    }
    std::string_view wanted(name);
    for (const ChannelRow &r : kChannels) {
        if (ascii::equal_nocase(r.name, wanted)) {
            return &r;
        }
    }
    return nullptr;
}

}  // namespace vq::debug
