// Remembered CRCs, so that an unchanged file is not read again to learn its
// CRC: relative name -> (device, inode, size, modification and change times
// to the nanosecond, CRC). An entry answers only while every one of those
// fields still matches the file's status; the change time cannot be set back,
// so a rewrite hidden by a restored modification time (cp -p, touch -d) still
// misses.
//
// A file changed within a timestamp step of the moment its status was taken
// could keep that status with other contents, so an entry whose modification
// or change time is not a step older than that moment is never stored: such a
// file is read again next time. The step is kDefaultStepNanoseconds, or the
// environment variable VQGLOB_TIMESTAMP_STEP_NS (0 to 60 s in nanoseconds)
// where every file system in use keeps finer times.
//
// The file the cache lives in is untrusted: it is read with every length
// checked against what remains, its size is bounded and a checksum covers it
// all; anything wrong and the cache starts empty. Safe for several threads.
#ifndef VQGLOB_CRC_CACHE_H
#define VQGLOB_CRC_CACHE_H

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "vq_glob/gf.h"

namespace vqglob {

class CrcCache {
public:
    // Timestamp steps of the file systems in use are at most this coarse
    // (FAT's two seconds the coarsest).
    static constexpr int64_t kDefaultStepNanoseconds = 2'000'000'000;
    // A cache file larger than this is not read.
    static constexpr uint64_t kMaxFileBytes = 256u << 20;

    // owner: a text stored in the file and checked on load (the source
    // directory on the client), so that one cache is never read for another.
    explicit CrcCache(std::string owner = std::string());

    // Replaces the entries by those of the file path. false (the cache empty,
    // the reason on the error stack) when it is missing, unreadable, too
    // large, torn, of another owner or otherwise damaged.
    bool load(const std::string &path);
    // Writes the entries used since they were loaded to path, when an entry
    // was added, changed or forgotten since the last load or save: first to a
    // new file in temp_dir, renamed over path when whole. false (the reason on
    // the stack, no temporary left) on failure.
    bool save(const std::string &path, const std::string &temp_dir);

    // The CRC remembered for name when status (gf_get_file_status of the
    // file now) matches the entry in every field.
    bool lookup(const std::string &name, const gf_file_status &status, uint32_t &crc);
    // Remembers crc for name as the file was when status was taken, at
    // status_taken_ns (nanoseconds since 1970); an entry too recent to be
    // trusted only removes what was remembered.
    void store(const std::string &name, const gf_file_status &status, uint32_t crc, int64_t status_taken_ns);
    // Forgets name.
    void forget(const std::string &name);

    // The CRC of the regular file at path (name relative, for the cache): the
    // remembered one when it matches (remembered true), else read and
    // remembered; the status it was judged by goes to status_out when given.
    // false with the reason on the stack.
    bool crc_of(const std::string &name, const std::string &path, uint32_t &crc, bool &remembered,
                gf_file_status *status_out = nullptr);

    // Now, in nanoseconds since 1970 (the clock file times are kept in).
    static int64_t now_ns();

private:
    struct Entry {
        uint64_t device = 0;
        uint64_t inode = 0;
        uint64_t size = 0;
        int64_t mtime_ns = 0;
        int64_t ctime_ns = 0;
        uint32_t crc = 0;
        bool used = false;  // looked up or stored since loading: saved
    };
    static Entry key_of(const gf_file_status &status);
    static bool same_key(const Entry &a, const Entry &b);
    bool parse(const std::string &bytes);
    std::string serialize();

    std::mutex mutex_;
    std::string owner_;
    int64_t step_ns_;
    bool dirty_ = false;  // entries differ from the file last loaded or saved
    std::map<std::string, Entry> entries_;
};

}  // namespace vqglob

#endif
