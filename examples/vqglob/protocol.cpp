// Packing of manifest entries and the reply frame shared by both ends.
#include "protocol.h"

#include <cstdlib>
#include <cstring>

#include "vq_glob/err.h"
#include "vq_glob/slm.h"

namespace vqglob {
namespace {

void put_be(std::string &out, uint64_t value, int bytes) {
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>((value >> shift) & 0xFF));
    }
}

uint64_t get_be(const unsigned char *p, int bytes) {
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) {
        value = (value << 8) | p[i];
    }
    return value;
}

void read_meta(const unsigned char *p, FileEntry &entry) {
    entry.size = get_be(p, 8);
    entry.mtime = static_cast<int64_t>(get_be(p + 8, 8));
    entry.mode = static_cast<uint32_t>(get_be(p + 16, 4));
    entry.crc = static_cast<uint32_t>(get_be(p + 20, 4));
}

}  // namespace

std::string pack_meta(const FileEntry &entry) {
    std::string out;
    put_be(out, entry.size, 8);
    put_be(out, static_cast<uint64_t>(entry.mtime), 8);
    put_be(out, entry.mode, 4);
    put_be(out, entry.crc, 4);
    return out;
}

bool unpack_meta(const void *data, uint32_t length, FileEntry &entry) {
    if (data == nullptr || length != kMetaBytes) {
        return false;
    }
    read_meta(static_cast<const unsigned char *>(data), entry);
    return true;
}

void append_manifest_entry(std::string &out, const FileEntry &entry) {
    put_be(out, entry.name.size(), 2);
    out += entry.name;
    out += pack_meta(entry);
}

bool unpack_manifest(const void *data, uint32_t length, std::vector<FileEntry> &entries) {
    const auto *p = static_cast<const unsigned char *>(data);
    const unsigned char *end = p + length;
    while (p < end) {
        if (end - p < 2) {
            return false;
        }
        size_t name_length = static_cast<size_t>(get_be(p, 2));
        p += 2;
        if (static_cast<size_t>(end - p) < name_length + kMetaBytes) {
            return false;
        }
        FileEntry entry;
        entry.name.assign(reinterpret_cast<const char *>(p), name_length);
        read_meta(p + name_length, entry);
        p += name_length + kMetaBytes;
        entries.push_back(std::move(entry));
    }
    return true;
}

bool Reader::next(uint16_t &code) {
    // A message without its end code ends with its body.
    if (slm_get_code(message_, &code) != 1) {
        err_clear_error_stack();
        return false;
    }
    return code != SLM_END_CODE;
}

bool Reader::get_int(int32_t &value) { return slm_get_int(message_, &value) == 1; }

bool Reader::get_string(std::string &value) {
    char *text = nullptr;
    if (slm_get_string(message_, &text) != 1) {
        return false;
    }
    value = text != nullptr ? text : "";
    std::free(text);
    return true;
}

bool Reader::get_void(const void *&data, uint32_t &length) {
    void *p = nullptr;
    if (slm_get_void(message_, &p, &length) != 1) {
        return false;
    }
    data = p;
    return true;
}

bool Reader::skip() { return slm_skip_element(message_) == 1; }

bool start_ok_reply(void *message) {
    return slm_init_handle(message) == 1 && slm_set_int(message, kStatus, kStatusOk) == 1;
}

bool make_error_reply(void *message) {
    void *entries = nullptr;
    int32_t size = 0;
    int32_t depth = 0;
    if (err_get_stack_depth() == 0) {
        err_add_text_error("the request failed without a reason");
    }
    err_get_stack_desc(&entries, &size, &depth);
    std::string packed(static_cast<const char *>(entries), static_cast<size_t>(size));
    return slm_init_handle(message) == 1 && slm_set_int(message, kStatus, kStatusFailed) == 1 &&
           slm_set_void(message, kErrorStack, packed.data(), static_cast<uint32_t>(packed.size())) == 1;
}

bool read_reply_status(Reader &reader) {
    uint16_t code = 0;
    int32_t status = kStatusFailed;
    if (!reader.next(code) || code != kStatus || !reader.get_int(status)) {
        err_set_error(ERR_GEN_GENERAL, "the daemon's reply has no status");
        return false;
    }
    if (status == kStatusOk) {
        return true;
    }
    const void *data = nullptr;
    uint32_t length = 0;
    if (reader.next(code) && code == kErrorStack && reader.get_void(data, length) && length > 0) {
        int32_t depth = static_cast<int32_t>(length / sizeof(err_entry));
        err_set_stack_desc(data, static_cast<int32_t>(length), depth);
    } else {
        err_set_error(ERR_GEN_GENERAL, "the daemon refused the request without a reason");
    }
    return false;
}

}  // namespace vqglob
