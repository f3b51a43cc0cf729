// Enciphering of the values of encrypted fields, and the public string forms.
//
// The scheme:
//  - Key: DES_string_to_key turns the key text, of any length, into a DES
//    key with odd parity (the classic libdes derivation: the text folded into
//    eight bytes, then a CBC checksum of the text under that fold).
//  - Plain block: a 4-byte check value (FNV-1a of the plain text, big-endian),
//    the plain text, then PKCS#7 padding of 1 to 8 bytes up to a multiple of
//    the 8-byte DES block.
//  - Cipher: DES in CBC mode. The IV is derived from the key (the DES
//    encryption of a fixed block under it), so that the same value under the
//    same key always gives the same text and rewriting an unchanged
//    configuration leaves the file unchanged. Since the check value depends
//    on the whole plain text and leads the first block, two different values
//    differ from their first cipher block on, whatever prefix they share.
//  - Text: the cipher bytes in base64 (RFC 4648 alphabet, "=" padding, no
//    line breaks), which contains no blank, "=" at the start or "_", so it
//    never disturbs the text format, and nothing that XML must escape.
// Deciphering accepts only canonical base64 of whole blocks, a valid padding
// and a matching check value: under a wrong key or for damaged text the check
// fails (a wrong key passes both by chance about once in 2^40 tries).
//
// The DES routines come from the system's libcrypto, loaded once per process
// on first use; OpenSSL 3 still exports these low-level functions (as
// deprecated API) without any provider being loaded. Values and keys are
// never traced, and the buffers that held plain text or key material are
// wiped before they are freed.
#include "vq_config/crypt.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "internal/openssl_lib.h"

namespace vq::conf {

namespace {

// The key of fields whose field, section and handle have none.
constexpr const char *kBuiltInKey = "Qwerty";

// ---- The DES functions of libcrypto ----------------------------------------

using DesBlock = unsigned char[8];
// DES_key_schedule: sixteen 8-byte round keys, the same layout in every
// OpenSSL version that has it.
struct DesSchedule {
    alignas(8) unsigned char bytes[128];
};
using StringToKeyFn = void (*)(const char *text, DesBlock *key);
using SetKeyFn = void (*)(const DesBlock *key, DesSchedule *schedule);
using CbcFn = void (*)(const unsigned char *in, unsigned char *out, long length, DesSchedule *schedule,
                       DesBlock *iv, int encrypt);

struct DesFunctions {
    StringToKeyFn string_to_key = nullptr;
    SetKeyFn set_key = nullptr;
    CbcFn cbc = nullptr;
    std::string failure;  // why there are none, for the error stack

    bool ready() const { return cbc != nullptr; }
};

// The three DES functions from the process's libcrypto (the shared loader
// keeps it loaded for the life of the process).
DesFunctions load_des_functions() {
    DesFunctions des;
    const vq::openssl::Loaded &crypto = vq::openssl::crypto_library();
    if (!crypto.ready()) {
        des.failure = crypto.failure;
    } else if (vq::openssl::find(crypto, "DES_string_to_key", des.string_to_key, &des.failure) &&
               vq::openssl::find(crypto, "DES_set_key_unchecked", des.set_key, &des.failure) &&
               vq::openssl::find(crypto, "DES_ncbc_encrypt", des.cbc, &des.failure)) {
        vq::debug::trace_bit(kTraceBit, "conf: DES functions loaded from <%s>\n", crypto.name.c_str());
        return des;
    }
    std::string why = std::move(des.failure);
    des = DesFunctions{};
    des.failure = std::move(why);
    vq::debug::trace_bit(kTraceBit, "conf: no DES functions (%s)\n", des.failure.c_str());
    return des;
}

// Loaded on the first call by whichever thread comes first; the others wait
// for it (a function-local static is initialised exactly once).
const DesFunctions &des_functions() {
    static const DesFunctions des = load_des_functions();
    return des;
}

// ---- Key material and plain text ---------------------------------------------

// Overwrites memory that held a secret; volatile so that the stores are not
// dropped as dead before the memory is freed.
void wipe(void *data, size_t size) {
    volatile unsigned char *p = static_cast<volatile unsigned char *>(data);
    for (size_t i = 0; i < size; ++i) {
        p[i] = 0;
    }
}

// A byte buffer that is wiped when it goes, on every path out.
struct SecretBytes {
    std::vector<unsigned char> bytes;
    explicit SecretBytes(size_t size) : bytes(size) {}
    ~SecretBytes() { wipe(bytes.data(), bytes.size()); }
    SecretBytes(const SecretBytes &) = delete;
    SecretBytes &operator=(const SecretBytes &) = delete;
};

// The IV is this block enciphered under the key.
constexpr DesBlock kIvSeed = {'c', 'o', 'n', 'f', '-', 'i', 'v', '0'};

class DesKey {
public:
    DesKey(const DesFunctions &des, std::string_view key) : des_(des) {
        std::string text(key);  // DES_string_to_key wants a C string
        DesBlock block;
        des_.string_to_key(text.c_str(), &block);
        des_.set_key(&block, &schedule_);
        wipe(&block, sizeof block);
        wipe(text.data(), text.size());
        // One block in CBC mode under a zero IV is that block's plain DES.
        DesBlock zero = {0};
        des_.cbc(kIvSeed, iv_, sizeof iv_, &schedule_, &zero, 1);
    }
    ~DesKey() {
        wipe(&schedule_, sizeof schedule_);
        wipe(iv_, sizeof iv_);
    }
    DesKey(const DesKey &) = delete;
    DesKey &operator=(const DesKey &) = delete;

    // size is a multiple of 8 that fits a long (the caller checks).
    void run(const unsigned char *in, unsigned char *out, size_t size, bool encrypt) {
        DesBlock iv;  // the routine advances the IV it is given
        std::memcpy(iv, iv_, sizeof iv);
        des_.cbc(in, out, static_cast<long>(size), &schedule_, &iv, encrypt ? 1 : 0);
    }

private:
    const DesFunctions &des_;
    DesSchedule schedule_{};
    DesBlock iv_ = {0};
};

constexpr size_t kBlock = 8;
constexpr size_t kCheckSize = 4;
// Well below what a 32-bit long can count, so that one call covers a value.
constexpr size_t kMaxCipher = size_t{1} << 28;

// FNV-1a: a check value that needs no table and no per-thread state (the
// library's CRC keeps a running register per thread, which a caller may be
// in the middle of using).
uint32_t check_value(const unsigned char *data, size_t size) {
    uint32_t hash = 2166136261u;
    for (size_t i = 0; i < size; ++i) {
        hash ^= data[i];
        hash *= 16777619u;
    }
    return hash;
}

// check value, plain text, PKCS#7 padding.
void fill_plain_block(std::string_view plain, std::vector<unsigned char> &block) {
    size_t body = kCheckSize + plain.size();
    size_t pad = kBlock - body % kBlock;  // 1 to 8
    block.resize(body + pad);
    std::memcpy(block.data() + kCheckSize, plain.data(), plain.size());
    uint32_t check = check_value(block.data() + kCheckSize, plain.size());
    for (size_t i = 0; i < kCheckSize; ++i) {
        block[i] = static_cast<unsigned char>(check >> (8 * (kCheckSize - 1 - i)));
    }
    std::memset(block.data() + body, static_cast<int>(pad), pad);
}

// The plain text inside a deciphered block, or false when its padding or
// check value is wrong.
bool take_plain(const std::vector<unsigned char> &block, std::string &out) {
    size_t size = block.size();
    size_t pad = block[size - 1];
    if (pad < 1 || pad > kBlock || size < kCheckSize + pad) {
        return false;
    }
    for (size_t i = size - pad; i < size; ++i) {
        if (block[i] != pad) {
            return false;
        }
    }
    const unsigned char *text = block.data() + kCheckSize;
    size_t text_size = size - pad - kCheckSize;
    uint32_t check = 0;
    for (size_t i = 0; i < kCheckSize; ++i) {
        check = (check << 8) | block[i];
    }
    if (check != check_value(text, text_size)) {
        return false;
    }
    out.assign(reinterpret_cast<const char *>(text), text_size);
    return true;
}

// ---- Base64 --------------------------------------------------------------------

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string base64_encode(const unsigned char *data, size_t size) {
    std::string text;
    text.reserve((size + 2) / 3 * 4);
    for (size_t i = 0; i < size; i += 3) {
        uint32_t group = uint32_t{data[i]} << 16;
        if (i + 1 < size) {
            group |= uint32_t{data[i + 1]} << 8;
        }
        if (i + 2 < size) {
            group |= data[i + 2];
        }
        text += kBase64[(group >> 18) & 63];
        text += kBase64[(group >> 12) & 63];
        text += i + 1 < size ? kBase64[(group >> 6) & 63] : '=';
        text += i + 2 < size ? kBase64[group & 63] : '=';
    }
    return text;
}

// The value of a base64 digit, -1 for any other character.
int base64_digit(char c) {
    const char *at = c != '\0' ? std::strchr(kBase64, c) : nullptr;
    return at != nullptr ? static_cast<int>(at - kBase64) : -1;
}

// Strict: whole groups of four, digits only but for one or two "=" closing
// the last group, and no stray bits under the padding, so that each byte
// string has exactly one text.
bool base64_decode(std::string_view text, std::vector<unsigned char> &out) {
    if (text.size() % 4 != 0) {
        return false;
    }
    out.clear();
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        bool last = i + 4 == text.size();
        size_t pads = 0;
        if (last) {
            pads = text[i + 3] != '=' ? 0 : text[i + 2] != '=' ? 1 : 2;
        }
        uint32_t group = 0;
        for (size_t k = 0; k < 4 - pads; ++k) {
            int digit = base64_digit(text[i + k]);
            if (digit < 0) {
                return false;
            }
            group = (group << 6) | static_cast<uint32_t>(digit);
        }
        group <<= 6 * pads;
        if ((pads == 1 && (group & 0xFF) != 0) || (pads == 2 && (group & 0xFFFF) != 0)) {
            return false;
        }
        out.push_back(static_cast<unsigned char>(group >> 16));
        if (pads < 2) {
            out.push_back(static_cast<unsigned char>(group >> 8));
        }
        if (pads < 1) {
            out.push_back(static_cast<unsigned char>(group));
        }
    }
    return true;
}

// ---- Failures --------------------------------------------------------------------

int failed(const char *what) {
    err_set_error(ERR_CNF_ENCRYPT, what);
    return 0;
}

int unavailable(const DesFunctions &des, const char *what) {
    err_set_error(ERR_SYS_ERRMSG, des.failure.c_str());
    err_add_error(ERR_CNF_ENCRYPT, what);
    return 0;
}

}  // namespace

std::string_view field_key(const Handle &h, const Section &s, const Field &f) {
    if (!f.peek().key.empty()) {
        return f.peek().key;
    }
    if (!s.key.empty()) {
        return s.key;
    }
    if (h.key_set && !h.key.empty()) {
        return h.key;
    }
    return kBuiltInKey;
}

int encrypt_text(std::string_view key, const char *what, std::string_view plain, std::string &out) {
    const DesFunctions &des = des_functions();
    if (!des.ready()) {
        return unavailable(des, what);
    }
    if (plain.size() >= kMaxCipher) {
        return failed(what);
    }
    SecretBytes block(0);
    fill_plain_block(plain, block.bytes);
    std::vector<unsigned char> cipher(block.bytes.size());
    DesKey(des, key).run(block.bytes.data(), cipher.data(), cipher.size(), true);
    out = base64_encode(cipher.data(), cipher.size());
    return 1;
}

int decrypt_text(std::string_view key, const char *what, std::string_view text, std::string &out) {
    const DesFunctions &des = des_functions();
    if (!des.ready()) {
        return unavailable(des, what);
    }
    std::vector<unsigned char> cipher;
    if (text.size() / 4 * 3 > kMaxCipher || !base64_decode(text, cipher) || cipher.empty() ||
        cipher.size() % kBlock != 0) {
        return failed(what);
    }
    SecretBytes block(cipher.size());
    DesKey(des, key).run(cipher.data(), block.bytes.data(), cipher.size(), false);
    std::string plain;
    if (!take_plain(block.bytes, plain)) {
        return failed(what);
    }
    out = std::move(plain);
    return 1;
}

}  // namespace vq::conf

using namespace vq::conf;

namespace {

// The key the public functions use: the caller's, else the built-in one.
std::string_view public_key(const char *key) {
    return key != nullptr && key[0] != '\0' ? std::string_view(key) : std::string_view(kBuiltInKey);
}

// *out = a malloc'ed copy of text (freed with conf_free_buffer).
int hand_out(const std::string &text, char **out, const char *function) {
    char *copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy == nullptr) {
        return vq::raise::memory(Report::fresh, function, kModule, __LINE__);
    }
    std::memcpy(copy, text.c_str(), text.size() + 1);
    *out = copy;
    return 1;
}

// Runs one of the two directions for a public function.
template <typename Direction>
int convert_string(const char *function, const char *key, const char *in, const char *in_name, char **out,
                   Direction direction) {
    if (in == nullptr || out == nullptr) {
        return vq::raise::params(Report::fresh, function, in == nullptr ? in_name : "out");
    }
    try {
        std::string result;
        int status = direction(public_key(key), function, std::string_view(in), result) != 0 &&
                     hand_out(result, out, function) != 0;
        wipe(result.data(), result.size());
        return status;
    } catch (const std::bad_alloc &) {
        return vq::raise::memory(Report::fresh, function, kModule, __LINE__);
    }
}

}  // namespace

extern "C" {

VQ_API int conf_encrypt_string(const char *key, const char *plain, char **out) {
    return convert_string("conf_encrypt_string", key, plain, "plain", out, encrypt_text);
}

VQ_API int conf_decrypt_string(const char *key, const char *text, char **out) {
    return convert_string("conf_decrypt_string", key, text, "text", out, decrypt_text);
}

VQ_API int conf_is_encryption_available(void) {
    try {
        return des_functions().ready() ? 1 : 0;
    } catch (const std::bad_alloc &) {
        return 0;  // loading is tried again by the next call
    }
}

}  // extern "C"
