// The per-thread error stack: coded and free-text entries, the description
// built from them, log file, console and event-log output, and the system
// message texts.
#include "vq_glob/err.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <string>

#include "internal/ascii.h"
#include "internal/error_table.h"
#include "internal/frame.h"
#include "internal/raise.h"
#include "platform/platform.h"

namespace vq::err {
namespace {

constexpr int kStackEntries = 10;  // one more than is ever kept
constexpr int kMaxDepth = kStackEntries - 1;
constexpr size_t kEntryText = sizeof(err_entry::text);
constexpr size_t kDescriptionSize = 5376;
constexpr size_t kScratchSize = 64000;
constexpr int kMaxRenames = 100;
constexpr uint32_t kFreeText = 0xFFFFFFFFu;
constexpr const char *kSeverityLetters[] = {"S", "I", "W", "E", "F"};
constexpr const char *kEventSource = "Velquist";
constexpr const char *kModule = "error_msg";  // in out-of-memory reports

static_assert(sizeof(err_entry) == 5124, "entries travel between processes byte for byte");

// Names are kept whole: a facility prints under exactly the name given.
struct Rename {
    uint32_t facility = 0;
    std::string name;
};

struct ErrorRecord {
    // A ring of entries: the oldest is at index first, so that dropping the
    // oldest entry of a full stack moves no text.
    err_entry *stack = nullptr;
    int32_t first = 0;
    int32_t depth = 0;
    int32_t not_initialised = 1;
    // Rebuilt when next read after a change, not at every push.
    char description[kDescriptionSize] = {0};
    bool description_stale = false;
    int32_t log_to_file = 0;
    int32_t interactive = 1;
    int32_t syslog = 1;
    int32_t syslog_severity = 4;
    char scratch[kScratchSize] = {0};
    int32_t rename_count = 0;
    Rename renames[kMaxRenames] = {};
    // Used whole: a name cut short would send the log to another file.
    std::string log_file;
    char saved[kDescriptionSize] = {0};

    ~ErrorRecord() { delete[] stack; }
};

using Frame = frame::ModuleFrame<ErrorRecord, frame::kSlotErr, frame::OnDemand::yes>;

// ---- message table lookups -------------------------------------------------

constexpr int32_t kNoIndex = -1;

// Index of each facility's first message, filled by one pass over the table.
struct FacilityIndex {
    std::array<int32_t, 64> first{};
    bool complete = true;

    FacilityIndex() {
        first.fill(kNoIndex);
        complete = kFacilityCount <= first.size();
        for (size_t i = 0; i < kMessageCount; ++i) {
            if (i != 0 && kMessageTable[i].facility == kMessageTable[i - 1].facility) {
                continue;
            }
            bool found = false;
            for (size_t f = 0; f < kFacilityCount && f < first.size(); ++f) {
                if (kFacilityTable[f].code == kMessageTable[i].facility && first[f] == kNoIndex) {
                    first[f] = static_cast<int32_t>(i);
                    found = true;
                    break;
                }
            }
            complete = complete && found;
        }
    }
};

const FacilityIndex &facility_index() {
    static const FacilityIndex index;
    return index;
}

const MessageRecord &catch_all() { return kMessageTable[kMessageCount - 1]; }

// The facility record with the greatest code strictly below code, or -1.
int facility_below(uint32_t code) {
    int best = -1;
    for (size_t f = 0; f < kFacilityCount; ++f) {
        uint32_t fc = kFacilityTable[f].code;
        if (fc < code && (best < 0 || fc > kFacilityTable[best].code)) {
            best = static_cast<int>(f);
        }
    }
    return best;
}

// Finds a code's record. Each facility's numbering starts at facility + 1,
// so the guessed index is usually one too high: both places are tried before
// the facility's run is scanned. Unknown codes give the catch-all.
const MessageRecord &lookup(uint32_t code) {
    int f = facility_below(code);
    if (f < 0) {
        return catch_all();
    }
    int32_t first = facility_index().first[f];
    if (first == kNoIndex) {
        return catch_all();
    }
    uint32_t facility = kFacilityTable[f].code;
    uint64_t guess = static_cast<uint64_t>(first) + (code - facility);
    if (guess < kMessageCount && kMessageTable[guess].code == code) {
        return kMessageTable[guess];
    }
    if (guess != 0 && guess - 1 < kMessageCount && kMessageTable[guess - 1].code == code) {
        return kMessageTable[guess - 1];
    }
    for (size_t i = static_cast<size_t>(first); i < kMessageCount && kMessageTable[i].facility == facility; ++i) {
        if (kMessageTable[i].code == code) {
            return kMessageTable[i];
        }
    }
    return catch_all();
}

// The facility's name as the table gives it ("" for an unknown facility).
const char *table_facility_name(uint32_t facility) {
    for (size_t f = 0; f < kFacilityCount; ++f) {
        if (kFacilityTable[f].code == facility) {
            return kFacilityTable[f].name;
        }
    }
    return "";
}

// The name the thread prints for the facility: its newest rename, else the table's.
const char *facility_name(const ErrorRecord &rec, uint32_t facility) {
    for (int i = rec.rename_count - 1; i >= 0; --i) {
        if (rec.renames[i].facility == facility) {
            return rec.renames[i].name.c_str();
        }
    }
    return table_facility_name(facility);
}

const char *severity_letter(uint32_t severity) {
    return severity < std::size(kSeverityLetters) ? kSeverityLetters[severity] : "?";
}

// ---- description -------------------------------------------------------------

// Bounded appending into a fixed text.
class TextBuilder {
public:
    TextBuilder(char *buf, size_t size) : buf_(buf), size_(size) { buf_[0] = '\0'; }

    void append(const char *text) { append(text, std::strlen(text)); }

    void append(const char *text, size_t n) {
        size_t room = size_ - 1 - len_;
        n = std::min(n, room);
        std::memcpy(buf_ + len_, text, n);
        len_ += n;
        buf_[len_] = '\0';
    }

private:
    char *buf_;
    size_t size_;
    size_t len_ = 0;
};

constexpr const char *kPlatformTags[] = {"W_",  "TRU_", "AIX_",  "SCO_", "BSD_", "LNX_",
                                         "HP_", "S2SP_", "WU_", "S2X86_", "U_"};
constexpr size_t kMaxTaggedWord = 40;

// Length of the platform-tagged word that starts text (up to the first
// blank, at most kMaxTaggedWord characters), or 0 when text has none.
size_t tagged_word_length(const char *text) {
    bool tagged = std::any_of(std::begin(kPlatformTags), std::end(kPlatformTags),
                              [text](const char *tag) { return std::strncmp(text, tag, std::strlen(tag)) == 0; });
    if (!tagged) {
        return 0;
    }
    size_t n = 0;
    while (text[n] != '\0' && !ascii::is_blank(text[n])) {
        ++n;
    }
    return n <= kMaxTaggedWord ? n : 0;
}

void append_entry_line(TextBuilder &out, const ErrorRecord &rec, const err_entry &entry) {
    if (entry.code == kFreeText) {
        out.append(entry.text);
        return;
    }
    const MessageRecord &msg = lookup(entry.code);
    // "%s-%s-%s": facility name, severity letter, ident.
    char head[256];
    TextBuilder head_out(head, sizeof head);
    head_out.append(facility_name(rec, msg.facility));
    head_out.append("-");
    head_out.append(severity_letter(msg.severity));
    head_out.append("-");
    head_out.append(msg.ident);
    // A system text that starts with a platform-tagged word shows that word
    // first: "W_CreateFile:SYS-E-ERRMSG, access denied".
    if (std::strcmp(head, "SYS-E-ERRMSG") == 0) {
        size_t word = tagged_word_length(entry.text);
        if (word > 0) {
            out.append(entry.text, word);
            out.append("SYS-E-ERRMSG,");
            out.append(entry.text + word);
            return;
        }
    }
    out.append(head);
    out.append(", ");
    out.append(entry.text);
}

// Entry i of the stack counted from the oldest.
err_entry &slot(const ErrorRecord &rec, int32_t i) { return rec.stack[(rec.first + i) % kStackEntries]; }

// The formatted stack: entries newest first, joined by "\n -".
const char *description(ErrorRecord &rec) {
    if (rec.description_stale) {
        TextBuilder out(rec.description, sizeof rec.description);
        for (int32_t i = rec.depth - 1; i >= 0; --i) {
            if (i != rec.depth - 1) {
                out.append("\n -");
            }
            append_entry_line(out, rec, slot(rec, i));
        }
        rec.description_stale = false;
    }
    return rec.description;
}

// ---- the stack ------------------------------------------------------------------

int initialise(ErrorRecord &rec) {
    if (rec.not_initialised == 0) {
        return 1;
    }
    if (rec.stack == nullptr) {
        rec.stack = new (std::nothrow) err_entry[kStackEntries];
        if (rec.stack == nullptr) {
            return 0;
        }
    }
    rec.first = 0;
    rec.depth = 0;
    rec.description[0] = '\0';
    rec.description_stale = false;
    rec.log_to_file = 0;
    rec.interactive = 1;
    rec.syslog = 1;
    rec.syslog_severity = 4;
    rec.rename_count = 0;
    rec.not_initialised = 0;
    return facility_index().complete ? 1 : 0;
}

// The thread's record, initialised; null when it cannot be had.
ErrorRecord *ready_record() {
    ErrorRecord *rec = Frame::get();
    if (rec == nullptr) {
        return nullptr;
    }
    initialise(*rec);
    return rec->stack != nullptr ? rec : nullptr;
}

// Copies text into the next entry (cut to "..." when it fills the entry) and
// keeps only the nine newest entries.
void push(ErrorRecord &rec, const char *text, uint32_t code) {
    err_entry &entry = slot(rec, rec.depth);
    size_t n = std::strlen(text);
    if (n >= kEntryText) {
        std::memcpy(entry.text, text, kEntryText - 4);
        std::memcpy(entry.text + kEntryText - 4, "...", 4);
    } else {
        std::memcpy(entry.text, text, n + 1);
    }
    entry.code = code;
    if (rec.depth == kMaxDepth) {
        rec.first = (rec.first + 1) % kStackEntries;  // the tenth entry pushes out the oldest
    } else {
        ++rec.depth;
    }
    rec.description_stale = true;
}

void push_coded(ErrorRecord &rec, uint32_t code, va_list args) {
    const MessageRecord &msg = lookup(code);
    std::vsnprintf(rec.scratch, sizeof rec.scratch, msg.text, args);
    push(rec, rec.scratch, msg.code);
}

void clear(ErrorRecord &rec) {
    rec.first = 0;
    rec.depth = 0;
    rec.description[0] = '\0';
    rec.description_stale = false;
}

// Entry n counted from the newest; past the oldest means the oldest.
const err_entry *entry_at(const ErrorRecord &rec, int32_t n) {
    if (rec.depth == 0) {
        return nullptr;
    }
    n = std::clamp(n, 0, rec.depth - 1);
    return &slot(rec, rec.depth - 1 - n);
}

int push_system_text(int32_t sys_errno, bool empty_first) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    char text[1024];
    plat_system_error_text(sys_errno, text, sizeof text);
    if (empty_first) {
        clear(*rec);
    }
    std::snprintf(rec->scratch, sizeof rec->scratch, "%s", text);
    push(*rec, rec->scratch, lookup(ERR_SYS_ERRMSG).code);
    return 1;
}

void write_log_file(ErrorRecord &rec) {
    uint32_t mask = plat_set_log_file_mask();
    std::FILE *log = nullptr;
    if (plat_open_log_file(rec.log_file.c_str(), &log) == 0) {
        std::fputs("-------------------------------------------------------------------------------\n", log);
        std::fprintf(log, "\n%s\n\n", description(rec));
        std::fclose(log);
    }
    plat_restore_file_mask(mask);
}

// One text on the console when console printing is on: errors, warnings
// and fatal ones on stderr, the rest on stdout.
void to_console(const ErrorRecord &rec, uint32_t severity, const char *text) {
    if (rec.interactive != 0) {
        std::FILE *console = severity >= 2 && severity <= 4 ? stderr : stdout;
        std::fprintf(console, "%s\n", text);
        std::fflush(console);
    }
}

// One text in the system log when that is on and severity reaches its
// threshold; the event's type follows the severity.
void to_system_log(const ErrorRecord &rec, uint32_t severity, const char *text) {
    if (rec.syslog == 0 || static_cast<int32_t>(severity) < rec.syslog_severity) {
        return;
    }
    const PlatEventType type = severity >= 3   ? PlatEventType::error
                               : severity == 2 ? PlatEventType::warning
                               : severity == 1 ? PlatEventType::information
                                               : PlatEventType::success;
    plat_event_report(kEventSource, type, 1000 + severity, text);
}

// One line of the program's own in the log file, without the separator an
// error description gets.
void append_log_line(const ErrorRecord &rec, const char *text) {
    uint32_t mask = plat_set_log_file_mask();
    std::FILE *log = nullptr;
    if (plat_open_log_file(rec.log_file.c_str(), &log) == 0) {
        std::fprintf(log, "%s\n", text);
        std::fclose(log);
    }
    plat_restore_file_mask(mask);
}

const char *const kJobNames[] = {"Internal Process", "Distribution Job", "Replication Job",
                                 "Deployment Job",   "Collection Job",   "Scheduled Job"};
const char *const kStatusNames[] = {"SUCCESS", "WARNING", "ERROR", "ABORT"};
constexpr PlatEventType kStatusTypes[] = {PlatEventType::success, PlatEventType::warning, PlatEventType::error,
                                          PlatEventType::error};

int report_event(ErrorRecord &rec, int32_t job_kind, int32_t status) {
    if (job_kind < 0 || static_cast<size_t>(job_kind) >= std::size(kJobNames)) {
        job_kind = ERR_JOB_INTERNAL;
    }
    if (status < 0 || static_cast<size_t>(status) >= std::size(kStatusNames)) {
        status = ERR_STATUS_ERROR;
    }
    std::snprintf(rec.scratch, sizeof rec.scratch, "%s %s: %s", kJobNames[job_kind], kStatusNames[status],
                  description(rec));
    auto event_id = static_cast<uint32_t>(1000 + status);
    if (int32_t error = plat_event_report(kEventSource, kStatusTypes[status], event_id, rec.scratch); error != 0) {
        push_system_text(error, false);
        return 0;
    }
    return 1;
}

// ---- system messages ----------------------------------------------------------

struct SysMsgRecord {
    char last[1024] = {0};
};

using SysMsgFrame = frame::ModuleFrame<SysMsgRecord, frame::kSlotSysMsg, frame::OnDemand::yes>;

}  // namespace
}  // namespace vq::err

namespace vq::frame {
constinit const Module kErrModule = err::Frame::module("err");
constinit const Module kSysMsgModule = err::SysMsgFrame::module("sys_msg");
}  // namespace vq::frame

using namespace vq::err;

extern "C" {

VQ_API int err_init_process(uint32_t tls_index) { return Frame::process_init(tls_index); }
VQ_API int err_clean_process(void) { return Frame::process_clean(); }
VQ_API int err_init_thread(void **slot) { return Frame::thread_init(slot); }
VQ_API int err_clean_thread(void **slot) { return Frame::thread_clean(slot); }

VQ_API int err_init(void) {
    ErrorRecord *rec = Frame::get();
    return rec != nullptr ? initialise(*rec) : 0;
}

VQ_API int err_shutdown(void) {
    ErrorRecord *rec = Frame::get();
    if (rec != nullptr) {
        delete[] rec->stack;
        rec->stack = nullptr;
        rec->first = 0;
        rec->depth = 0;
        rec->not_initialised = 1;
    }
    return 1;
}

VQ_API int err_set_error(uint32_t code, ...) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    clear(*rec);
    va_list args;
    va_start(args, code);
    push_coded(*rec, code, args);
    va_end(args);
    return 1;
}

VQ_API int err_add_error(uint32_t code, ...) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    va_list args;
    va_start(args, code);
    push_coded(*rec, code, args);
    va_end(args);
    return 1;
}

VQ_API int err_add_raw_error(const err_entry *entry) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr || entry == nullptr) {
        return 0;
    }
    // The text may come from another process: never trust its terminator.
    size_t n = strnlen(entry->text, kEntryText - 1);
    std::memcpy(rec->scratch, entry->text, n);
    rec->scratch[n] = '\0';
    push(*rec, rec->scratch, entry->code);
    return 1;
}

VQ_API int err_add_text_error(const char *text) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    std::snprintf(rec->scratch, sizeof rec->scratch, "%s", text != nullptr ? text : "");
    push(*rec, rec->scratch, kFreeText);
    return 1;
}

VQ_API int err_add_text_error_before_stack(const char *text) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    char old_description[kDescriptionSize];
    std::memcpy(old_description, description(*rec), sizeof old_description);
    clear(*rec);
    err_add_text_error(text);
    if (old_description[0] != '\0') {
        err_add_text_error(old_description);
    }
    return 1;
}

VQ_API int err_add_system_error(int32_t sys_errno) { return push_system_text(sys_errno, false); }

VQ_API int err_set_system_error(int32_t sys_errno) { return push_system_text(sys_errno, true); }

VQ_API int err_set_network_error(int32_t socket_errno) { return push_system_text(socket_errno, true); }

VQ_API int err_clear_error_stack(void) {
    ErrorRecord *rec = ready_record();
    if (rec != nullptr) {
        clear(*rec);
    }
    return 1;
}

VQ_API const char *err_get_error_msg(void) {
    ErrorRecord *rec = ready_record();
    return rec != nullptr ? description(*rec) : "";
}

VQ_API uint32_t err_get_error_code(int32_t n) {
    ErrorRecord *rec = ready_record();
    const err_entry *entry = rec != nullptr ? entry_at(*rec, n) : nullptr;
    return entry != nullptr ? lookup(entry->code).code : 0;
}

VQ_API uint32_t err_get_error_severity(int32_t n) {
    ErrorRecord *rec = ready_record();
    const err_entry *entry = rec != nullptr ? entry_at(*rec, n) : nullptr;
    return entry != nullptr ? lookup(entry->code).severity : 0;
}

VQ_API uint32_t err_get_error_facility(int32_t n) {
    ErrorRecord *rec = ready_record();
    const err_entry *entry = rec != nullptr ? entry_at(*rec, n) : nullptr;
    return entry != nullptr ? lookup(entry->code).facility : 0;
}

VQ_API const char *err_get_error_text(int32_t n) {
    ErrorRecord *rec = ready_record();
    const err_entry *entry = rec != nullptr ? entry_at(*rec, n) : nullptr;
    return entry != nullptr ? entry->text : "";
}

VQ_API int32_t err_get_stack_depth(void) {
    ErrorRecord *rec = ready_record();
    return rec != nullptr ? rec->depth : 0;
}

VQ_API int32_t err_get_max_error_severity(void) {
    ErrorRecord *rec = ready_record();
    uint32_t highest = 0;
    for (int32_t i = 0; rec != nullptr && i < rec->depth; ++i) {
        highest = std::max(highest, lookup(slot(*rec, i).code).severity);
    }
    return static_cast<int32_t>(highest);
}

VQ_API int err_get_stack_desc(void **entries, int32_t *size, int32_t *depth) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr || entries == nullptr || size == nullptr || depth == nullptr) {
        return 0;
    }
    // Callers see the entries oldest first in one run.
    std::rotate(rec->stack, rec->stack + rec->first, rec->stack + kStackEntries);
    rec->first = 0;
    *entries = rec->stack;
    *size = rec->depth * static_cast<int32_t>(sizeof(err_entry));
    *depth = rec->depth;
    return 1;
}

VQ_API int err_set_stack_desc(const void *entries, int32_t size, int32_t depth) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    if ((entries == nullptr && depth > 0) || size < 0 || depth < 0) {
        return VQ_PARAMS(vq::raise::Report::fresh, entries == nullptr ? "entries" : "size/depth");
    }
    int32_t whole = size / static_cast<int32_t>(sizeof(err_entry));
    int32_t count = std::min({depth, whole, static_cast<int32_t>(kMaxDepth)});
    // Keep the newest entries when more arrive than the stack holds.
    const auto *source = static_cast<const err_entry *>(entries) + (std::min(depth, whole) - count);
    clear(*rec);
    for (int32_t i = 0; i < count; ++i) {
        std::memcpy(&rec->stack[i], &source[i], sizeof(err_entry));
        rec->stack[i].text[kEntryText - 1] = '\0';
    }
    rec->depth = count;
    rec->description_stale = true;
    return 1;
}

VQ_API int err_get_table_message(int32_t index, uint32_t *code, uint32_t *severity, const char **facility,
                                 const char **ident, const char **text) {
    // The last record is the catch-all, not a message of its own.
    if (index < 0 || static_cast<size_t>(index) + 1 >= kMessageCount) {
        return 0;
    }
    const MessageRecord &m = kMessageTable[index];
    if (code != nullptr) {
        *code = m.code;
    }
    if (severity != nullptr) {
        *severity = m.severity;
    }
    if (facility != nullptr) {
        *facility = table_facility_name(m.facility);
    }
    if (ident != nullptr) {
        *ident = m.ident;
    }
    if (text != nullptr) {
        *text = m.text;
    }
    return 1;
}

VQ_API int err_change_facility(uint32_t facility, const char *name) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr || rec->rename_count >= kMaxRenames) {
        return rec != nullptr ? 1 : 0;
    }
    Rename &r = rec->renames[rec->rename_count];
    try {
        r.name = name != nullptr ? name : "";
    } catch (const std::bad_alloc &) {
        return VQ_NO_MEMORY(vq::raise::Report::add, kModule);
    }
    r.facility = facility;
    ++rec->rename_count;
    rec->description_stale = true;
    return 1;
}

VQ_API int err_save_error(void) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    std::memcpy(rec->saved, description(*rec), sizeof rec->saved);
    return 1;
}

VQ_API const char *err_get_saved_error(void) {
    ErrorRecord *rec = ready_record();
    return rec != nullptr ? rec->saved : "";
}

VQ_API int err_print_error_msg(void) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    const err_entry *newest = entry_at(*rec, 0);
    const uint32_t severity = newest != nullptr ? lookup(newest->code).severity : 0;
    to_console(*rec, severity, description(*rec));
    if (rec->log_to_file != 0) {
        write_log_file(*rec);
    }
    if (newest != nullptr) {
        to_system_log(*rec, severity, description(*rec));
    }
    return 1;
}

VQ_API int err_log_line(int32_t severity, const char *text) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    if (text == nullptr || severity < 0 || severity > 4) {
        return vq::raise::params(vq::raise::Report::fresh, __func__, text == nullptr ? "text" : "severity");
    }
    const auto level = static_cast<uint32_t>(severity);
    to_console(*rec, level, text);
    if (rec->log_to_file != 0) {
        append_log_line(*rec, text);
    }
    to_system_log(*rec, level, text);
    return 1;
}

VQ_API int err_set_log_file(const char *name) {
    ErrorRecord *rec = ready_record();
    if (rec == nullptr) {
        return 0;
    }
    if (name == nullptr) {
        rec->log_to_file = 0;
        return 1;
    }
    try {
        rec->log_file = name;
    } catch (const std::bad_alloc &) {
        return VQ_NO_MEMORY(vq::raise::Report::add, kModule);  // the previous setting stays
    }
    rec->log_to_file = 1;
    return 1;
}

VQ_API int err_set_log_interactive(int32_t flag) {
    ErrorRecord *rec = ready_record();
    if (rec != nullptr) {
        rec->interactive = flag != 0 ? 1 : 0;
    }
    return rec != nullptr ? 1 : 0;
}

VQ_API int err_set_log_syslog(int32_t flag) {
    ErrorRecord *rec = ready_record();
    if (rec != nullptr) {
        rec->syslog = flag != 0 ? 1 : 0;
    }
    return rec != nullptr ? 1 : 0;
}

VQ_API int err_set_syslog_severity(int32_t severity) {
    ErrorRecord *rec = ready_record();
    if (rec != nullptr) {
        rec->syslog_severity = severity;
    }
    return rec != nullptr ? 1 : 0;
}

VQ_API int err_event_report(int32_t job_kind, int32_t status) {
    ErrorRecord *rec = ready_record();
    return rec != nullptr ? report_event(*rec, job_kind, status) : 0;
}

VQ_API const char *get_system_error_message(int32_t sys_errno) {
    SysMsgRecord *rec = SysMsgFrame::get();
    if (rec == nullptr) {
        return "";
    }
    plat_system_error_text(sys_errno, rec->last, sizeof rec->last);
    return rec->last;
}

VQ_API int is_error_type_error(int32_t sys_errno) { return plat_is_failure_error(sys_errno) ? 1 : 0; }

VQ_API int is_access_error(int32_t sys_errno) { return plat_is_access_error(sys_errno) ? 1 : 0; }

VQ_API int is_file_not_found_error(int32_t sys_errno) { return plat_is_file_not_found_error(sys_errno) ? 1 : 0; }

VQ_API int sys_msg_init(void) { return SysMsgFrame::get() != nullptr ? 1 : 0; }

VQ_API int sys_msg_clean(void) {
    SysMsgFrame::release_current();
    return 1;
}

}  // extern "C"
