// Writing a handle as configuration text: into a file (in place, over room
// reserved first, or through "<file>.temp" put in the file's place only after
// a complete write), or into a buffer for the caller. The text is built whole in the thread's
// writer record first, so that the file sees one write and a failure leaves
// nothing half-formatted behind.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "platform/conf_io.h"
#include "vq_config/conf_state.h"
#include "vq_config/crypt.h"
#include "vq_glob/gf.h"

namespace vq::conf {
namespace {

// Whether an element, as the reader will see it (trimmed), would close the
// block early.
bool closes(const std::string &element, const std::string &closing) {
    size_t first = element.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return closing.empty();
    }
    size_t last = element.find_last_not_of(" \t\r\n");
    return element.compare(first, last - first + 1, closing) == 0;
}

// The tag last read when it is safe, else the first of tag_1, tag_2, ...
// that no element equals once the marker is put before it.
std::string choose_tag(const std::vector<std::string> &elements, const std::string &last_tag,
                       const std::string &marker) {
    std::string tag = last_tag;
    for (unsigned n = 1;; ++n) {
        std::string closing = marker + tag;
        bool clash = false;
        for (const std::string &element : elements) {
            if (closes(element, closing)) {
                clash = true;
                break;
            }
        }
        if (!clash) {
            return tag;
        }
        tag = last_tag + "_" + std::to_string(n);
    }
}

bool format_field(Handle &h, const Section &s, const Field &f, std::string &out, const char *eol) {
    std::vector<std::string> texts;
    if (!field_output_texts(h, s, f, texts)) {
        return false;
    }
    out += f.name();
    out += '=';
    if (!is_multi_line(f.type)) {
        out += texts.empty() ? std::string() : texts.front();
        out += eol;
        return true;
    }
    std::string marker = marker_of(f.type);
    std::string tag = choose_tag(texts, f.peek().tag, marker);
    out += marker;
    out += tag;
    out += eol;
    for (const std::string &element : texts) {
        out += element;
        out += eol;
    }
    out += marker;
    out += tag;
    out += eol;
    return true;
}

bool too_large(const std::string &text) {
    if (text.size() > static_cast<size_t>(INT32_MAX)) {
        err_set_error(ERR_GEN_GENERAL, "configuration text too large");
        return true;
    }
    return false;
}

// A file-layer handle on name, open for writing: a fresh file, or with
// keep_contents the file as it is (created when missing). -1 with the file
// layer's entries on the stack.
int32_t open_for_writing(const char *name, bool keep_contents) {
    int32_t fh = -1;
    if (gf_allocate_handle(&fh) == 0) {
        return -1;
    }
    uint32_t flags = GF_WRITE | (keep_contents ? GF_KEEP_CONTENTS : GF_TRUNCATE);
    if (gf_set_file_name(fh, name) == 0 || gf_set_file_open_flags(fh, flags) == 0 || gf_create_file(fh) == 0) {
        gf_free_handle(fh);
        return -1;
    }
    return fh;
}

// Closes and frees fh; status, or 0 when the close fails.
int close_written(int32_t fh, int status) {
    if (gf_close_file(fh) == 0) {
        status = 0;
    }
    gf_free_handle(fh);
    return status;
}

bool write_all(int32_t fh, std::string &text) {
    return text.empty() || gf_write_file(fh, text.data(), static_cast<int32_t>(text.size())) != 0;
}

// Writes text as the whole of a new file name, synced to the device.
int write_new_file(const char *name, std::string &text) {
    if (too_large(text)) {
        return 0;
    }
    int32_t fh = open_for_writing(name, false);
    if (fh < 0) {
        return 0;
    }
    return close_written(fh, write_all(fh, text) && gf_flush_file(fh) != 0 ? 1 : 0);
}

// Rewrites name in place. The room the new text needs is reserved before
// the first old byte is touched, so that a full device fails the write with
// the old configuration whole; only then is the text written from the start
// and the file cut to its length. (Truncating first, as a plain rewrite
// does, would hand the old blocks back and leave a cut file on a full disk.)
// A missing file that this write created is removed again when it fails.
int write_in_place(const char *name, std::string &text) {
    if (too_large(text)) {
        return 0;
    }
    PlatFileKind kind = PlatFileKind::other;
    bool existed = plat_file_kind_by_name(name, true, &kind) == 0;
    int32_t fh = open_for_writing(name, true);
    if (fh < 0) {
        return 0;
    }
    int32_t fd = -1;
    int32_t error = gf_get_file_handle(fh, &fd) != 0 ? plat_conf_reserve(fd, text.size())
                                                     : plat_file_invalid_argument(PlatIo::native);
    if (error != 0) {
        raise::system(Report::fresh, error);
        close_written(fh, 0);
        if (!existed) {
            plat_file_remove(name);
        }
        return 0;
    }
    std::string length = std::to_string(text.size());
    return close_written(fh, write_all(fh, text) && gf_truncate_file(fh, length.c_str()) != 0 ? 1 : 0);
}

int write_file(Handle &h, const std::string &name, std::string &text) {
    if (!h.write_with_temp) {
        if (write_in_place(name.c_str(), text) == 0) {
            err_add_error(ERR_CNF_FILE_8204);
            return 0;
        }
        return 1;
    }
    std::string temp = name + ".temp";
    if (write_new_file(temp.c_str(), text) == 0) {
        err_add_error(ERR_CNF_FILE_8204);
        plat_file_remove(temp.c_str());
        return 0;
    }
    int32_t error = plat_conf_replace_file(temp.c_str(), name.c_str());
    if (error != 0) {
        raise::system(Report::fresh, error);
        err_add_error(ERR_CNF_FILE_8204);
        plat_file_remove(temp.c_str());
        return 0;
    }
    return 1;
}

}  // namespace

std::vector<std::string> value_texts(const Field &f) {
    auto bool_text = [](int32_t value) { return std::string(value != 0 ? "TRUE" : "FALSE"); };
    std::vector<std::string> texts;
    switch (f.type) {
        case CONF_TYPE_INT: texts.push_back(std::to_string(f.number)); break;
        case CONF_TYPE_BOOL: texts.push_back(bool_text(f.number)); break;
        case CONF_TYPE_ML_TEXT: texts = f.peek().lines; break;
        case CONF_TYPE_ML_INT:
            for (int32_t n : f.peek().numbers) {
                texts.push_back(std::to_string(n));
            }
            break;
        case CONF_TYPE_ML_BOOL:
            for (int32_t n : f.peek().numbers) {
                texts.push_back(bool_text(n));
            }
            break;
        case CONF_TYPE_BIG_INT: texts.push_back(f.peek().big.text()); break;
        default:
            // An untyped field without a value (just created) has nothing.
            if (f.has_value || !f.text().empty()) {
                texts.emplace_back(f.text());
            }
            break;
    }
    return texts;
}

bool skipped_on_write(const Handle &h, const Section &s, const Field *f) {
    if (!h.only_table_on_write || !h.bound) {
        return false;  // before a table is bound nothing is left out
    }
    bool skipped = !s.in_table || (f != nullptr && !f->in_table);
    if (skipped && f != nullptr) {
        vq::debug::trace_bit(kTraceBit, "conf_write_section() - skipping field <%s>\n", f->name().c_str());
    }
    return skipped;
}

bool field_output_texts(Handle &h, const Section &s, const Field &f, std::vector<std::string> &texts) {
    texts = value_texts(f);
    if ((f.flags & kFlagEncrypted) == 0) {
        return true;
    }
    std::string_view key = field_key(h, s, f);
    for (std::string &text : texts) {
        std::string cipher;
        if (encrypt_text(key, f.name().c_str(), text, cipher) == 0) {
            err_add_error(ERR_CNF_WRITE, f.name().c_str());
            return false;
        }
        text = std::move(cipher);
    }
    return true;
}

bool format_handle(Handle &h, std::string &out, bool crlf) {
    const char *eol = crlf ? "\r\n" : "\n";
    for (Section &s : h.sections) {
        if (skipped_on_write(h, s, nullptr)) {
            continue;
        }
        out += '[';
        out += s.name();
        out += ']';
        out += eol;
        for (Field &f : s.fields) {
            if (!skipped_on_write(h, s, &f) && !format_field(h, s, f, out, eol)) {
                return false;
            }
        }
    }
    return true;
}

namespace {

// The handle's output, text or XML as the handle chooses.
bool format_output(Handle &h, std::string &out, bool crlf) {
    return h.write_xml ? format_handle_xml(h, out, crlf) : format_handle(h, out, crlf);
}

}  // namespace

}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_write(void *vh, const char *file_name) {
    Handle *checked = handle_of(vh, "conf_write");
    if (checked == nullptr) {
        return 0;
    }
    Handle &h = *checked;
    Guard guard(&h, __LINE__);
    std::string name;
    try {
        name = file_name != nullptr ? std::string(file_name) : h.file_name;
    } catch (const std::bad_alloc &) {
        return vq::raise::memory(Report::fresh, "conf_write", kModule, __LINE__);
    }
    if (name.empty()) {
        return VQ_PARAMS(Report::fresh, "file_name");
    }
    WriterRecord *rec = WriterFrame::get();
    std::string local;
    std::string &text = rec != nullptr ? rec->text : local;
    text.clear();
    try {
        // Files are written as the C runtime's text mode would write them.
        if (!format_output(h, text, plat_conf_text_uses_crlf())) {
            text.clear();
            return 0;
        }
    } catch (const std::bad_alloc &) {
        text = std::string();
        return vq::raise::memory(Report::fresh, "conf_write", kModule, __LINE__);
    }
    int status = 0;
    if (!h.lock_use) {
        status = write_file(h, name, text);
    } else {
        std::string lock = name + ".lock";
        vq::debug::trace_bit(kTraceBit, "write - lock file is <%s>\n", lock.c_str());
        if (gf_lock_wait_file(lock.c_str(), kLockTimeoutMs) == 0) {
            err_add_error(ERR_CNF_GENERAL, "failed to create lock file", lock.c_str());
        } else {
            status = write_file(h, name, text);
            if (gf_unlock_file(lock.c_str()) == 0 && status != 0) {
                status = 0;
            }
        }
    }
    text.clear();
    if (status != 0) {
        try {
            h.file_name = name;
        } catch (const std::bad_alloc &) {
            return vq::raise::memory(Report::fresh, "conf_write", kModule, __LINE__);
        }
    }
    return status;
}

VQ_API int conf_write_buffer(void *vh, char **buffer) {
    Handle *checked = handle_and_argument(vh, buffer, "conf_write_buffer", "buffer");
    if (checked == nullptr) {
        return 0;
    }
    Handle &h = *checked;
    Guard guard(&h, __LINE__);
    std::string text;
    try {
        if (!format_output(h, text, false)) {
            return 0;
        }
    } catch (const std::bad_alloc &) {
        vq::debug::trace_bit(kTraceBit, "Failed to realloc lv->text_buffer.\n");
        return vq::raise::memory(Report::fresh, "conf_write_buffer", kModule, __LINE__);
    }
    char *out = static_cast<char *>(std::malloc(text.size() + 1));
    if (out == nullptr) {
        vq::debug::trace_bit(kTraceBit, "Failed to realloc lv->text_buffer.\n");
        return vq::raise::memory(Report::fresh, "conf_write_buffer", kModule, __LINE__);
    }
    std::memcpy(out, text.c_str(), text.size() + 1);
    *buffer = out;
    return 1;
}

VQ_API void conf_free_buffer(char *buffer) { std::free(buffer); }

}  // extern "C"
