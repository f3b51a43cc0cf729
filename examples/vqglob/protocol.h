// The deployment protocol between "vqglob deploy" (and "releases",
// "rollback") and "vqglob serve".
//
// The connection runs over TLS (sle.h: client certificates required, the
// daemon checks the client's name or fingerprint) when the daemon has a
// certificate; plain only on loopback with both sides agreeing.
//
// One request is one signed typed message (slm.h) from the client, answered
// by exactly one signed message from the daemon. Every request begins with
// the element OP (int) naming the operation; every reply begins with STATUS
// (int, kStatusOk or kStatusFailed) and, when failed, ERROR_STACK: the
// daemon's error stack packed as err_get_stack_desc gives it (an array of
// err_entry), which the client puts back with err_set_stack_desc and prints.
//
//   HELLO     VERSION (int), FLAGS (int: kFlagRelease, kFlagDryRun).
//             Opens a deployment on the connection. Reply: the target's
//             manifest, MANIFEST_TOTAL (int) entries in MANIFEST_CHUNK (void)
//             elements of at most kManifestChunkBytes, MANIFEST_NEXT (int) the
//             index of the first entry not sent yet, -1 when all were.
//   MANIFEST  OFFSET (int): the entries from that index on, as HELLO's reply.
//   FILES     per file: FILE_NAME (string), FILE_META (void, kMetaBytes),
//             FILE_DATA (binary attachment); at most kBatchFiles files or
//             kBatchBytes bytes of data per message. Reply: FILES_WRITTEN.
//             The client may send the next FILES before this reply.
//   DELETE    DELETE_NAMES (void): relative names, each ended by a NUL.
//             Reply: FILES_DELETED (int).
//   COMMIT    Ends the deployment: runs the post-deploy command, switches
//             "current" for a release. Reply: EXIT_CODE (int, -1 without a
//             command), RELEASE_ID (string, releases only). A failed command
//             fails the reply (STATUS failed, EXIT_CODE still given).
//   RELEASES  Reply: RELEASE_NAME (string) per release, oldest first, and
//             CURRENT (string, empty when there is none).
//   ROLLBACK  Points "current" at the release before it. Reply: CURRENT.
//   BYE       Ends the connection: answered with STATUS ok, after which the
//             daemon closes its side (abandoning a deployment not committed).
//             A connection that ends without BYE is logged as broken.
//
// A manifest entry (and the meta of FILES, without the name) is, numbers
// big-endian:
//   2 bytes name length N, N bytes relative name ('/' separated, no NUL),
//   8 bytes size, 8 bytes modification time (Unix seconds, truncated),
//   4 bytes mode (permission bits), 4 bytes CRC-32 of the contents (gf.h's
//   gf_calc_file_crc; 0 for an empty file).
#ifndef VQGLOB_PROTOCOL_H
#define VQGLOB_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vqglob {

inline constexpr int32_t kProtocolVersion = 1;

// Element codes of requests.
inline constexpr uint16_t kOp = 1;
inline constexpr uint16_t kVersion = 2;
inline constexpr uint16_t kFlags = 3;
inline constexpr uint16_t kOffset = 4;
inline constexpr uint16_t kFileName = 10;
inline constexpr uint16_t kFileMeta = 11;
inline constexpr uint16_t kFileData = 12;
inline constexpr uint16_t kDeleteNames = 13;

// Element codes of replies.
inline constexpr uint16_t kStatus = 20;
inline constexpr uint16_t kErrorStack = 21;
inline constexpr uint16_t kManifestChunk = 22;
inline constexpr uint16_t kManifestTotal = 23;
inline constexpr uint16_t kManifestNext = 24;
inline constexpr uint16_t kExitCode = 25;
inline constexpr uint16_t kReleaseId = 26;
inline constexpr uint16_t kReleaseName = 27;
inline constexpr uint16_t kCurrent = 28;
inline constexpr uint16_t kFilesWritten = 29;
inline constexpr uint16_t kFilesDeleted = 30;

// Operations (values of kOp).
enum Op : int32_t { kHello = 1, kManifest, kFiles, kDelete, kCommit, kReleases, kRollback, kBye };

// HELLO flags.
inline constexpr int32_t kFlagRelease = 1;
inline constexpr int32_t kFlagDryRun = 2;

inline constexpr int32_t kStatusOk = 0;
inline constexpr int32_t kStatusFailed = 1;

inline constexpr uint32_t kMetaBytes = 24;
inline constexpr size_t kManifestChunkBytes = 8u << 20;
// A FILES batch is cut at kBatchFiles files or kBatchBytes bytes; the client
// sends up to kBatchesAhead batches before it reads their replies (each a few
// bytes, so neither side can block the other on a full socket).
inline constexpr size_t kBatchFiles = 64;
inline constexpr uint64_t kBatchBytes = 8u << 20;
inline constexpr size_t kBatchesAhead = 4;
// The longest relative name accepted (bytes).
inline constexpr size_t kMaxNameBytes = 4096;

// One file: its name relative to the deployed tree and what decides whether
// it travels.
struct FileEntry {
    std::string name;
    uint64_t size = 0;
    int64_t mtime = 0;
    uint32_t mode = 0;
    uint32_t crc = 0;
};

// The 24-byte meta of an entry (size, mtime, mode, crc).
std::string pack_meta(const FileEntry &entry);
// Reads a meta back into entry; false when data is not kMetaBytes long.
bool unpack_meta(const void *data, uint32_t length, FileEntry &entry);
// Appends one manifest entry (name and meta) to out.
void append_manifest_entry(std::string &out, const FileEntry &entry);
// Appends the entries packed in data to entries; false on a truncated entry.
bool unpack_manifest(const void *data, uint32_t length, std::vector<FileEntry> &entries);

// A message being read element by element: next() steps to the next code
// (false at the end code or the end of the body); the getters read the value
// of the element whose code was just read.
class Reader {
public:
    explicit Reader(void *message) : message_(message) {}
    bool next(uint16_t &code);
    bool get_int(int32_t &value);
    bool get_string(std::string &value);
    bool get_void(const void *&data, uint32_t &length);
    bool skip();

private:
    void *message_;
};

// Starts a reply in message (emptied first): STATUS ok.
bool start_ok_reply(void *message);
// Makes message a failed reply carrying the calling thread's error stack.
bool make_error_reply(void *message);
// Reads STATUS of a received reply; on a failed one puts the packed stack
// back on this thread's stack and returns false. The reader stands after
// STATUS (and ERROR_STACK) on return.
bool read_reply_status(Reader &reader);

}  // namespace vqglob

#endif
