// Remembered CRCs (see crc_cache.h).
//
// The file, numbers little-endian:
//   8 bytes "VQGCRC1\n", 4 bytes owner length O, O bytes owner, 4 bytes entry
//   count N; N entries of 2 bytes name length L, L bytes name, 8 bytes each of
//   device, inode, size, mtime ns, ctime ns, 4 bytes CRC; then 4 bytes CRC-32
//   (hash.h's updcrc) of everything before them.
#include "crc_cache.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "files.h"
#include "vq_glob/err.h"
#include "vq_glob/hash.h"

namespace vqglob {
namespace {

constexpr char kMagic[8] = {'V', 'Q', 'G', 'C', 'R', 'C', '1', '\n'};
constexpr size_t kEntryFixedBytes = 2 + 5 * 8 + 4;
constexpr int64_t kNanoseconds = 1'000'000'000;

uint32_t checksum(const std::string &bytes, size_t length) {
    updcrc(nullptr, 0);
    return updcrc(reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<uint32_t>(length));
}

void put_number(std::string &out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xffu));
    }
}

// Reads numbers and texts off a byte string, each only when that many bytes
// remain: a short or lying file stops the reader, never overreads.
class ByteReader {
public:
    ByteReader(const std::string &bytes, size_t end) : bytes_(bytes), end_(end) {}
    bool number(uint64_t &value, int bytes) {
        if (end_ - pos_ < static_cast<size_t>(bytes)) {
            return false;
        }
        value = 0;
        for (int i = 0; i < bytes; ++i) {
            value |= static_cast<uint64_t>(static_cast<unsigned char>(bytes_[pos_ + i])) << (8 * i);
        }
        pos_ += static_cast<size_t>(bytes);
        return true;
    }
    bool text(std::string &value, size_t length) {
        if (end_ - pos_ < length) {
            return false;
        }
        value.assign(bytes_, pos_, length);
        pos_ += length;
        return true;
    }
    size_t remaining() const { return end_ - pos_; }

private:
    const std::string &bytes_;
    size_t end_;
    size_t pos_ = 0;
};

bool damaged(const std::string &path, const char *why) {
    err_set_error(ERR_GEN_GENERAL, ("the CRC cache <" + path + "> is not used: " + why).c_str());
    return false;
}

int64_t nanoseconds(int64_t seconds, int32_t nanos) { return seconds * kNanoseconds + nanos; }

// The timestamp step: VQGLOB_TIMESTAMP_STEP_NS when it is a number of at
// most a minute, else the default.
int64_t timestamp_step() {
    const char *text = std::getenv("VQGLOB_TIMESTAMP_STEP_NS");
    if (text == nullptr || *text == '\0' || std::strlen(text) > 11) {
        return CrcCache::kDefaultStepNanoseconds;
    }
    int64_t value = 0;
    for (const char *c = text; *c != '\0'; ++c) {
        if (*c < '0' || *c > '9') {
            return CrcCache::kDefaultStepNanoseconds;
        }
        value = value * 10 + (*c - '0');
    }
    return value <= 60 * kNanoseconds ? value : CrcCache::kDefaultStepNanoseconds;
}

}  // namespace

CrcCache::CrcCache(std::string owner) : owner_(std::move(owner)), step_ns_(timestamp_step()) {}

int64_t CrcCache::now_ns() {
    auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(since_epoch).count();
}

CrcCache::Entry CrcCache::key_of(const gf_file_status &status) {
    Entry entry;
    entry.device = status.device;
    entry.inode = status.inode;
    entry.size = status.size;
    entry.mtime_ns = nanoseconds(status.modified_seconds, status.modified_nanoseconds);
    entry.ctime_ns = nanoseconds(status.changed_seconds, status.changed_nanoseconds);
    return entry;
}

bool CrcCache::same_key(const Entry &a, const Entry &b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size && a.mtime_ns == b.mtime_ns &&
           a.ctime_ns == b.ctime_ns;
}

bool CrcCache::load(const std::string &path) {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
    dirty_ = false;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return damaged(path, "it cannot be opened");
    }
    in.seekg(0, std::ios::end);
    const std::streamoff length = in.tellg();
    in.seekg(0, std::ios::beg);
    if (length < 0 || static_cast<uint64_t>(length) > kMaxFileBytes) {
        return damaged(path, "it is too large or cannot be measured");
    }
    std::string bytes(static_cast<size_t>(length), '\0');
    in.read(bytes.data(), static_cast<std::streamsize>(length));
    if (in.gcount() != length) {
        return damaged(path, "it could not be read whole");
    }
    if (!parse(bytes)) {
        entries_.clear();
        return damaged(path, "it is damaged or belongs elsewhere");
    }
    return true;
}

bool CrcCache::parse(const std::string &bytes) {
    if (bytes.size() < sizeof kMagic + 4 || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) {
        return false;
    }
    const size_t body = bytes.size() - 4;
    ByteReader trailer(bytes, bytes.size());
    uint64_t sum = 0;
    std::string skipped;
    if (!trailer.text(skipped, body) || !trailer.number(sum, 4) || sum != checksum(bytes, body)) {
        return false;
    }
    ByteReader reader(bytes, body);
    uint64_t owner_length = 0;
    uint64_t count = 0;
    std::string owner;
    if (!reader.text(skipped, sizeof kMagic) || !reader.number(owner_length, 4) ||
        !reader.text(owner, static_cast<size_t>(owner_length)) || owner != owner_ || !reader.number(count, 4) ||
        count > reader.remaining() / kEntryFixedBytes) {
        return false;
    }
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t length = 0;
        std::string name;
        Entry entry;
        uint64_t mtime = 0;
        uint64_t ctime = 0;
        uint64_t crc = 0;
        if (!reader.number(length, 2) || length == 0 || length > kMaxNameBytes ||
            !reader.text(name, static_cast<size_t>(length)) || !reader.number(entry.device, 8) ||
            !reader.number(entry.inode, 8) || !reader.number(entry.size, 8) || !reader.number(mtime, 8) ||
            !reader.number(ctime, 8) || !reader.number(crc, 4)) {
            return false;
        }
        entry.mtime_ns = static_cast<int64_t>(mtime);
        entry.ctime_ns = static_cast<int64_t>(ctime);
        entry.crc = static_cast<uint32_t>(crc);
        entries_[name] = entry;
    }
    return reader.remaining() == 0;
}

std::string CrcCache::serialize() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string out(kMagic, sizeof kMagic);
    put_number(out, owner_.size(), 4);
    out += owner_;
    size_t count_at = out.size();
    put_number(out, 0, 4);
    uint64_t count = 0;
    for (const auto &[name, entry] : entries_) {
        if (!entry.used || name.empty() || name.size() > kMaxNameBytes) {
            continue;
        }
        put_number(out, name.size(), 2);
        out += name;
        put_number(out, entry.device, 8);
        put_number(out, entry.inode, 8);
        put_number(out, entry.size, 8);
        put_number(out, static_cast<uint64_t>(entry.mtime_ns), 8);
        put_number(out, static_cast<uint64_t>(entry.ctime_ns), 8);
        put_number(out, entry.crc, 4);
        ++count;
    }
    for (int i = 0; i < 4; ++i) {
        out[count_at + i] = static_cast<char>((count >> (8 * i)) & 0xffu);
    }
    put_number(out, checksum(out, out.size()), 4);
    return out;
}

bool CrcCache::save(const std::string &path, const std::string &temp_dir) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!dirty_) {
            return true;
        }
        dirty_ = false;  // set again by any change made while this is written
    }
    std::string bytes = serialize();
    if (bytes.size() > kMaxFileBytes) {
        err_set_error(ERR_GEN_GENERAL, ("the CRC cache for <" + path + "> would be too large to read back").c_str());
        return false;
    }
    int32_t h = -1;
    if (gf_allocate_handle(&h) != 1) {
        return false;
    }
    char *temp = nullptr;
    bool created = gf_create_temp(h, temp_dir.c_str(), "crc-cache-") == 1 && gf_get_file_name(h, &temp) == 1;
    std::string temp_name = created && temp != nullptr ? temp : "";
    bool ok = created && gf_write_file(h, bytes.data(), static_cast<int32_t>(bytes.size())) == 1;
    ok = gf_close_file(h) == 1 && ok;
    gf_free_handle(h);
    ok = ok && rename_path(temp_name, path);
    if (!ok && !temp_name.empty()) {
        err_save_error();
        remove_path(temp_name);
        err_set_error(ERR_GEN_GENERAL, err_get_saved_error());
    }
    if (!ok) {
        std::lock_guard<std::mutex> lock(mutex_);
        dirty_ = true;
    }
    return ok;
}

bool CrcCache::lookup(const std::string &name, const gf_file_status &status, uint32_t &crc) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = entries_.find(name);
    if (it == entries_.end() || !same_key(it->second, key_of(status))) {
        return false;
    }
    it->second.used = true;
    crc = it->second.crc;
    return true;
}

void CrcCache::store(const std::string &name, const gf_file_status &status, uint32_t crc, int64_t status_taken_ns) {
    Entry entry = key_of(status);
    entry.crc = crc;
    entry.used = true;
    const int64_t safe_before = status_taken_ns - step_ns_;
    const bool trusted = entry.mtime_ns < safe_before && entry.ctime_ns < safe_before;
    std::lock_guard<std::mutex> lock(mutex_);
    if (trusted) {
        Entry &kept = entries_[name];
        dirty_ = dirty_ || !same_key(kept, entry) || kept.crc != entry.crc;
        kept = entry;
    } else {
        dirty_ = entries_.erase(name) > 0 || dirty_;
    }
}

void CrcCache::forget(const std::string &name) {
    std::lock_guard<std::mutex> lock(mutex_);
    dirty_ = entries_.erase(name) > 0 || dirty_;
}

bool CrcCache::crc_of(const std::string &name, const std::string &path, uint32_t &crc, bool &remembered,
                      gf_file_status *status_out) {
    // The moment is taken before the status: a change after it gives later times.
    const int64_t taken = now_ns();
    gf_file_status status{};
    remembered = false;
    if (!file_status(path, status)) {
        return false;
    }
    if (status_out != nullptr) {
        *status_out = status;
    }
    if (lookup(name, status, crc)) {
        remembered = true;
        return true;
    }
    if (!file_crc(path, crc)) {
        return false;
    }
    store(name, status, crc, taken);
    return true;
}

}  // namespace vqglob
