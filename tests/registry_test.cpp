// Registry access. The value tests run twice: against the registry file a
// thread names (new_reg_set_filename) and against the system's store (the
// real registry on Windows, here under Wine; on POSIX the default hive files,
// moved into the test's directory through VQ_GLOB_REGISTRY). The file tests
// then cover what only files have: the text, damage, the lock, concurrent
// writers from threads and processes, and a writer killed at every step.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/env_var.h"
#include "support/file_bytes.h"
#include "support/kill_at_calls.h"
#include "support/lock_step.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/reg.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#else
#include <process.h>
#endif

namespace fs = std::filesystem;

namespace {

constexpr const char *kHiveVariable = "VQ_GLOB_REGISTRY";
constexpr const char *kLockWaitVariable = "VQ_GLOB_REGISTRY_LOCK_WAIT";

using vq::test::read_file;
using vq::test::set_env;
using vq::test::write_file;

int process_id() {
#ifdef _WIN32
    return _getpid();
#else
    return static_cast<int>(::getpid());
#endif
}

// The value as new_reg_get_key_value hands it out, or "<failed>".
std::string value_of(const std::string &key, const char *name, int user = 0) {
    void *data = nullptr;
    uint32_t length = 7;
    if (new_reg_get_key_value(key.c_str(), name, &data, &length, user) != 1) {
        EXPECT_TRUE(data == nullptr && length == 0) << "outputs not cleared on failure";
        return "<failed>";
    }
    std::string bytes = data != nullptr ? std::string(static_cast<char *>(data), length) : std::string();
    EXPECT_TRUE(data == nullptr || static_cast<char *>(data)[length] == '\0') << "no NUL after the data";
    EXPECT_EQ(data == nullptr, length == 0);
    new_reg_free(&data);
    EXPECT_EQ(data, nullptr);
    return bytes;
}

int set(const std::string &key, const char *name, const std::string &bytes, uint32_t type, int user = 0) {
    return new_reg_set_key_value(key.c_str(), name, bytes.data(), static_cast<uint32_t>(bytes.size()), type, user);
}

// The newest entry carries code, the one below it the system's line.
void expect_failure(uint32_t code) {
    EXPECT_EQ(err_get_error_code(0), code) << err_get_error_msg();
    EXPECT_EQ(err_get_error_code(1), ERR_SYS_ERRMSG) << err_get_error_msg();
}

std::string dword(uint32_t n) {
    return std::string{static_cast<char>(n & 0xff), static_cast<char>((n >> 8) & 0xff),
                       static_cast<char>((n >> 16) & 0xff), static_cast<char>(n >> 24)};
}

enum class Store { file, system };

class RegistryTest : public ::testing::TestWithParam<Store> {
protected:
    void SetUp() override {
        err_clear_error_stack();
        const std::string tag = "vq_reg_" + std::to_string(process_id());
        base_ = ::testing::TempDir() + tag;
        remove_files();
        // Keys of their own, so that runs never meet in the system's registry.
        key_ = std::string(REG_PRODUCT_KEY) + "\\" + tag;
        if (GetParam() == Store::file) {
            ASSERT_EQ(new_reg_set_filename(base_.c_str()), 1);
        } else {
            set_env(kHiveVariable, base_.c_str());  // files only where there is no registry
        }
    }
    void TearDown() override {
        for (const auto &[key, name, user] : written_) {
            new_reg_delete_value(key.c_str(), name.c_str(), user);
        }
        new_reg_set_filename(nullptr);
        new_reg_set_key(nullptr);
        reg_set_user_mode(0);
        set_env(kHiveVariable, nullptr);
        remove_files();
    }
    void remove_files() {
        for (const char *suffix : {"", ".lock", ".temp", ".user", ".user.lock", ".user.temp"}) {
            std::remove((base_ + suffix).c_str());
        }
    }
    // Sets a value and remembers it for removal from the system's registry.
    int put(const std::string &key, const char *name, const std::string &bytes, uint32_t type, int user = 0) {
        written_.push_back({key, name, user});
        return set(key, name, bytes, type, user);
    }

    struct Written {
        std::string key, name;
        int user;
    };
    std::vector<Written> written_;
    std::string base_;
    std::string key_;
};

TEST_P(RegistryTest, ValuesReadBackWithTheirExactBytesLengthAndType) {
    std::string every_byte;
    for (int b = 0; b < 256; ++b) {
        every_byte += static_cast<char>(b);
    }
    struct Case {
        const char *name;
        std::string bytes;
        uint32_t type;
    } cases[] = {
        {"with NUL", std::string("hello\0", 6), REG_TYPE_STRING},
        {"without NUL", "hello", REG_TYPE_STRING},
        {"inner NULs", std::string("a\0b\0", 4), REG_TYPE_STRING},
        {"quotes", "say \"\\x41\" \\ \t\r\n end", REG_TYPE_STRING},
        {"utf-8", std::string("Gr\xc3\xbc\xc3\x9f" "e\0", 8), REG_TYPE_STRING},
        {"every byte", every_byte, REG_TYPE_BINARY},
        {"number", dword(0xA1B2C3D4u), REG_TYPE_DWORD},
        {"short number", "\x01", REG_TYPE_DWORD},
        {"", "default value", REG_TYPE_STRING},
    };
    for (const Case &c : cases) {
        ASSERT_EQ(put(key_, c.name, c.bytes, c.type), 1) << c.name << ": " << err_get_error_msg();
    }
    for (const Case &c : cases) {
        EXPECT_EQ(value_of(key_, c.name), c.bytes) << c.name;
        char buffer[300];
        uint32_t size = sizeof buffer;
        uint32_t type = 0;
        ASSERT_EQ(reg_get_key_value(key_.c_str(), c.name, buffer, &size, &type, REG_LEVEL_ABSOLUTE), 1) << c.name;
        EXPECT_EQ(std::string(buffer, size), c.bytes) << c.name;
        EXPECT_EQ(type, c.type) << c.name;
    }
    // A value name's case does not matter; a later write replaces the data.
    ASSERT_EQ(put(key_, "NUMBER", dword(7), REG_TYPE_DWORD), 1);
    EXPECT_EQ(value_of(key_, "number"), dword(7));

    // Empty values: no buffer, length 0, success.
    ASSERT_EQ(put(key_, "empty", "", REG_TYPE_BINARY), 1);
    void *data = &data;
    uint32_t length = 9;
    ASSERT_EQ(new_reg_get_key_value(key_.c_str(), "empty", &data, &length, 0), 1) << err_get_error_msg();
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
    ASSERT_EQ(put(key_, "empty string", "", REG_TYPE_STRING), 1);
    EXPECT_EQ(value_of(key_, "empty string"), "");
}

TEST_P(RegistryTest, DuplicateSocketIsOnOnlyForFourBytesStartingWithOne) {
    const std::string product = REG_PRODUCT_KEY;
    err_set_error(ERR_GEN_GENERAL, "caller's own error");
    EXPECT_EQ(new_reg_should_work_advance_socket(), 0);  // no value, and for files no key either
    struct Case {
        std::string bytes;
        uint32_t type;
        int expected;
    } cases[] = {{dword(1), REG_TYPE_DWORD, 1},
                 {dword(256), REG_TYPE_DWORD, 0},
                 {"\x01", REG_TYPE_BINARY, 0},
                 {"\x01", REG_TYPE_DWORD, 0},
                 {std::string("\x01\0\0\0\0", 5), REG_TYPE_BINARY, 0},
                 {std::string("\x01\0\0\0", 4), REG_TYPE_BINARY, 1}};
    for (const Case &c : cases) {
        ASSERT_EQ(put(product, "DuplicateSocket", c.bytes, c.type), 1) << err_get_error_msg();
        EXPECT_EQ(new_reg_should_work_advance_socket(), c.expected) << c.bytes.size() << " bytes";
        // The user hive never counts.
        ASSERT_EQ(put(product, "DuplicateSocket", dword(1), REG_TYPE_DWORD, 1), 1);
        EXPECT_EQ(new_reg_should_work_advance_socket(), c.expected);
    }
    ASSERT_EQ(new_reg_delete_value(product.c_str(), "DuplicateSocket", 0), 1) << err_get_error_msg();
    EXPECT_EQ(new_reg_should_work_advance_socket(), 0);
    // The answer leaves the caller's error stack alone.
    EXPECT_EQ(err_get_stack_depth(), 1);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_GENERAL);
}

TEST_P(RegistryTest, RegFamilyPutsLowLevelsBelowTheProductRootInTheHiveOfTheUserMode) {
    const std::string tail = "vq_reg_" + std::to_string(process_id()) + "\\settings";
    const std::string rooted = std::string(REG_PRODUCT_ROOT) + tail;
    for (int32_t level : {0, 9}) {
        std::string data = "level " + std::to_string(level);
        written_.push_back({rooted, "v", 0});
        ASSERT_EQ(reg_set_key_value(tail.c_str(), "v", data.data(), static_cast<uint32_t>(data.size()), 1, 0, level),
                  1);
        EXPECT_EQ(value_of(rooted, "v"), data);
    }
    // From level 10 on the key is taken as given.
    written_.push_back({key_, "v", 0});
    ASSERT_EQ(reg_set_key_value(key_.c_str(), "v", "abs", 3, REG_TYPE_BINARY, 0, REG_LEVEL_ABSOLUTE), 1);
    EXPECT_EQ(value_of(key_, "v"), "abs");
    EXPECT_EQ(value_of(std::string(REG_PRODUCT_ROOT) + key_, "v"), "<failed>");

    // The user mode chooses the hive of the reg_ family; new_reg_ has its argument.
    written_.push_back({key_, "who", 0});
    written_.push_back({key_, "who", 1});
    for (int32_t mode : {0, 1, -1}) {
        ASSERT_EQ(reg_set_user_mode(mode), 1);
        std::string who = mode > 0 ? "user" : "machine";
        ASSERT_EQ(reg_set_key_value(key_.c_str(), "who", who.data(), 4, 3, 0, REG_LEVEL_ABSOLUTE), 1);
    }
    EXPECT_EQ(value_of(key_, "who", 0), "mach");
    EXPECT_EQ(value_of(key_, "who", 1), "user");
    reg_set_user_mode(1);
    char buffer[8];
    uint32_t size = sizeof buffer;
    ASSERT_EQ(reg_get_key_value(key_.c_str(), "who", buffer, &size, nullptr, REG_LEVEL_ABSOLUTE), 1);
    EXPECT_EQ(std::string(buffer, size), "user");
    ASSERT_EQ(reg_delete_value(key_.c_str(), "who", REG_LEVEL_ABSOLUTE), 1);
    EXPECT_EQ(value_of(key_, "who", 1), "<failed>");
    EXPECT_EQ(value_of(key_, "who", 0), "mach");
}

TEST_P(RegistryTest, MissingKeysValuesAndSmallBuffersFailWithTheSystemLineFirst) {
    const std::string deep = key_ + "\\one\\two\\three";
    ASSERT_EQ(put(deep, "v", "x", REG_TYPE_BINARY), 1) << err_get_error_msg();
    // The parents were created: a missing value there, not a missing key.
    EXPECT_EQ(value_of(key_ + "\\one\\two", "v"), "<failed>");
    expect_failure(ERR_REG_GETVAL);
    EXPECT_EQ(value_of(key_ + "\\one\\other", "v"), "<failed>");
    expect_failure(ERR_REG_OPENKEY);
    EXPECT_NE(std::string(err_get_error_text(0)).find("one\\other\\v>"), std::string::npos) << err_get_error_text(0);

    EXPECT_EQ(new_reg_delete_value(deep.c_str(), "missing", 0), 0);
    expect_failure(ERR_REG_DELVAL);
    EXPECT_EQ(new_reg_delete_value((key_ + "\\nowhere").c_str(), "v", 0), 0);
    expect_failure(ERR_REG_OPENKEY);

    char buffer[1];
    uint32_t size = 0;
    ASSERT_EQ(put(deep, "long", "12345", REG_TYPE_BINARY), 1);
    EXPECT_EQ(reg_get_key_value(deep.c_str(), "long", buffer, &size, nullptr, REG_LEVEL_ABSOLUTE), 0);
    expect_failure(ERR_REG_GETVAL);
    EXPECT_EQ(size, 5u);
    size = 0;
    ASSERT_EQ(reg_get_key_value(deep.c_str(), "long", nullptr, &size, nullptr, REG_LEVEL_ABSOLUTE), 1);
    EXPECT_EQ(size, 5u);

    // The default key stands in for a NULL key, and only while it is set.
    void *data = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(new_reg_get_key_value(nullptr, "long", &data, &length, 0), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    ASSERT_EQ(new_reg_set_key(deep.c_str()), 1);
    ASSERT_EQ(new_reg_get_key_value(nullptr, "long", &data, &length, 0), 1);
    EXPECT_EQ(std::string(static_cast<char *>(data), length), "12345");
    new_reg_free(&data);
    ASSERT_EQ(new_reg_set_key(nullptr), 1);
    EXPECT_EQ(new_reg_delete_value(nullptr, "long", 0), 0);
    EXPECT_EQ(new_reg_set_key_value(deep.c_str(), "v", nullptr, 1, REG_TYPE_BINARY, 0), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    new_reg_free(nullptr);
}

TEST_P(RegistryTest, VolatileKeysHoldValuesLikeOthers) {
    const std::string key = key_ + "\\session";
    written_.push_back({key, "pid", 0});
    std::string pid = dword(static_cast<uint32_t>(process_id()));
    ASSERT_EQ(reg_set_key_value(key.c_str(), "pid", pid.data(), 4, REG_TYPE_DWORD, 1, REG_LEVEL_ABSOLUTE), 1)
        << err_get_error_msg();
    EXPECT_EQ(value_of(key, "pid"), pid);
}

INSTANTIATE_TEST_SUITE_P(Stores, RegistryTest, ::testing::Values(Store::file, Store::system),
                         [](const auto &info) { return info.param == Store::file ? "File" : "System"; });

// ---- What only the file registry has -------------------------------------------------------

class FileRegistry : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        file_ = ::testing::TempDir() + "vq_reg_file_" + std::to_string(process_id());
        remove_files();
        ASSERT_EQ(new_reg_set_filename(file_.c_str()), 1);
    }
    void TearDown() override {
        new_reg_set_filename(nullptr);
        set_env(kLockWaitVariable, nullptr);
        remove_files();
    }
    void remove_files() {
        for (const char *suffix : {"", ".lock", ".temp", ".user"}) {
            std::remove((file_ + suffix).c_str());
        }
    }
    std::string file_;
};

TEST_F(FileRegistry, TheTextIsTheDocumentedFormatAndOperatorEditsReadBack) {
    ASSERT_EQ(set("SOFTWARE\\Velquist", "DuplicateSocket", dword(1), REG_TYPE_DWORD), 1) << err_get_error_msg();
    ASSERT_EQ(set("SOFTWARE\\Velquist", "Server", std::string("node1\0", 6), REG_TYPE_STRING), 1);
    ASSERT_EQ(set("SOFTWARE\\Velquist\\Sub", "", std::string("a\"\\\n", 4), REG_TYPE_STRING), 1);
    ASSERT_EQ(set("SOFTWARE\\Velquist\\Sub", "Key", std::string("\x00\x1f\xa0", 3), REG_TYPE_BINARY), 1);
    ASSERT_EQ(set("SOFTWARE\\Velquist\\Sub", "odd", "\x05", REG_TYPE_DWORD), 1);
    std::string text = read_file(file_);
    size_t body = text.find("\n\n");
    ASSERT_NE(body, std::string::npos) << text;
    EXPECT_EQ(text.substr(0, text.find('\n')), "vq_glob registry hive 1");
    EXPECT_EQ(text.substr(body + 1),
              "\n[SOFTWARE]\n"
              "\n[SOFTWARE\\Velquist]\n\"DuplicateSocket\"=dword:00000001\n\"Server\"=\"node1\"\n"
              "\n[SOFTWARE\\Velquist\\Sub]\n@=str:\"a\\\"\\\\\\x0a\"\n\"Key\"=hex:00,1f,a0\n\"odd\"=hex(4):05\n");

    // An operator's edit: comments, CRLF, blanks at line ends, other case.
    write_file(file_,
               "vq_glob registry hive 1\r\n; edited by hand\r\n# another comment\n\n[software\\VELQUIST]  \r\n"
               "\"DuplicateSocket\"=DWORD:00000100\n\"Text\"=str:\"\\x41\xc3\xa9\"\n\"Bytes\"=hex:\n"
               "[Software\\Velquist\\Deep\\Er]\n\"n\"=hex(1):41,00\n");
    EXPECT_EQ(value_of("SOFTWARE\\Velquist", "duplicatesocket"), "<failed>");  // "DWORD" is not "dword"
    write_file(file_,
               "vq_glob registry hive 1\r\n; edited by hand\r\n# another comment\n\n[software\\VELQUIST]  \r\n"
               "\"DuplicateSocket\"=dword:00000100\n\"Text\"=str:\"\\x41\xc3\xa9\"\n\"Bytes\"=hex:\n"
               "[Software\\Velquist\\Deep\\Er]\n\"n\"=hex(1):41,00\n");
    EXPECT_EQ(value_of("SOFTWARE\\Velquist", "duplicatesocket"), dword(256)) << err_get_error_msg();
    EXPECT_EQ(value_of("SOFTWARE\\Velquist", "Text"), "A\xc3\xa9");
    EXPECT_EQ(value_of("SOFTWARE\\Velquist", "Bytes"), "");
    EXPECT_EQ(value_of("SOFTWARE\\Velquist\\Deep\\Er", "n"), std::string("A\0", 2));
    EXPECT_EQ(value_of("SOFTWARE\\Velquist\\Deep", "n"), "<failed>");
    expect_failure(ERR_REG_GETVAL);  // the key above exists
}

TEST_F(FileRegistry, DamagedFilesAreRefusedWholeAndLeftAsTheyAre) {
    const std::string head = "vq_glob registry hive 1\n";
    struct Case {
        const char *what;
        std::string text;
        uint32_t extra_code = 0;
    } cases[] = {
        {"empty", ""},
        {"other header", "vq_glob registry hive 2\n[A]\n"},
        {"cut short", head + "[A]\n\"v\"=hex:01,0"},
        {"odd hex", head + "[A]\n\"v\"=hex:01,0\n"},
        {"hex blanks", head + "[A]\n\"v\"=hex:01, 02\n"},
        {"short dword", head + "[A]\n\"v\"=dword:0000001\n"},
        {"long dword", head + "[A]\n\"v\"=dword:000000001\n"},
        {"bad escape", head + "[A]\n\"v\"=\"a\\qb\"\n"},
        {"open quote", head + "[A]\n\"v\"=\"abc\n"},
        {"after quote", head + "[A]\n\"v\"=\"abc\"x\n"},
        {"raw control", head + "[A]\n\"v\"=\"a\x01" "b\"\n"},
        {"NUL byte", head + "[A]\n\"v\"=hex:01\n" + std::string("\0\n", 2)},
        {"value first", head + "\"v\"=hex:01\n[A]\n"},
        {"key twice", head + "[A]\n[a]\n"},
        {"value twice", head + "[A]\n\"v\"=hex:01\n\"V\"=hex:02\n"},
        {"empty key name", head + "[A\\\\B]\n"},
        {"no bracket", head + "[A\n"},
        {"no equals", head + "[A]\n\"v\" hex:01\n"},
        {"stray line", head + "[A]\nv=hex:01\n"},
        {"late boot", head + "[A]\nboot 1234\n"},
        {"unknown type", head + "[A]\n\"v\"=hex(7):00\n", ERR_REG_UNKTYP},
        {"huge type", head + "[A]\n\"v\"=hex(99999999999):00\n"},
    };
    for (const Case &c : cases) {
        write_file(file_, c.text);
        EXPECT_EQ(value_of("A", "v"), "<failed>") << c.what;
        EXPECT_EQ(err_get_error_code(0), ERR_REG_READ) << c.what << ": " << err_get_error_msg();
        if (c.extra_code != 0) {
            EXPECT_EQ(err_get_error_code(1), c.extra_code) << c.what;
        }
        EXPECT_EQ(err_get_error_code(c.extra_code != 0 ? 2 : 1), ERR_SYS_ERRMSG) << c.what;
        EXPECT_EQ(std::string(err_get_error_text(c.extra_code != 0 ? 2 : 1)).rfind("line ", 0), 0u) << c.what;
        EXPECT_EQ(set("A", "w", "x", REG_TYPE_BINARY), 0) << c.what;
        EXPECT_EQ(err_get_error_code(0), ERR_REG_READ) << c.what;
        EXPECT_EQ(read_file(file_), c.text) << c.what;
        EXPECT_FALSE(fs::exists(file_ + ".lock")) << c.what;
    }
}

TEST_F(FileRegistry, LimitsAndUnstoredTypesAreRefusedBeforeAnythingIsWritten) {
    ASSERT_EQ(set("A", "keep", "x", REG_TYPE_BINARY), 1);
    const std::string before = read_file(file_);
    std::string largest(REG_MAX_VALUE_BYTES, '\xee');
    EXPECT_EQ(set("A", "big", largest + "!", REG_TYPE_BINARY), 0);
    expect_failure(ERR_REG_SETKEY);
    EXPECT_EQ(set("A", "expand", "x", 2), 0);
    expect_failure(ERR_REG_UNKTYP);
    EXPECT_EQ(set("A\\\\B", "v", "x", REG_TYPE_BINARY), 0);
    expect_failure(ERR_REG_SETKEY);
    EXPECT_EQ(set(std::string(256, 'k'), "v", "x", REG_TYPE_BINARY), 0);
    expect_failure(ERR_REG_SETKEY);
    EXPECT_EQ(read_file(file_), before);
    ASSERT_EQ(set("A", "big", largest, REG_TYPE_BINARY), 1) << err_get_error_msg();
    EXPECT_EQ(value_of("A", "big"), largest);

    // A file beyond the limit, or no file at all, is refused as it stands.
    write_file(file_, "vq_glob registry hive 1\n;" + std::string(REG_MAX_FILE_BYTES, ' ') + "\n");
    EXPECT_EQ(value_of("A", "keep"), "<failed>");
    expect_failure(ERR_REG_READ);
    EXPECT_NE(std::string(err_get_error_text(1)).find("larger than"), std::string::npos);
    std::remove(file_.c_str());
    fs::create_directory(file_);
    EXPECT_EQ(value_of("A", "keep"), "<failed>");
    expect_failure(ERR_REG_READ);
    fs::remove(file_);
#if !defined(_WIN32)
    ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);  // would hang a blocking open
    EXPECT_EQ(value_of("A", "keep"), "<failed>");
    expect_failure(ERR_REG_READ);
#endif
}

TEST_F(FileRegistry, VolatileKeysEndWithTheBootTheyWereWrittenIn) {
    ASSERT_EQ(set("S", "kept", "2", REG_TYPE_BINARY), 1);
    ASSERT_EQ(reg_set_key_value("S\\Run", "v", "1", 1, REG_TYPE_BINARY, 1, REG_LEVEL_ABSOLUTE), 1)
        << err_get_error_msg();
    // A key created below a volatile key must be volatile itself.
    EXPECT_EQ(reg_set_key_value("S\\Run\\Sub", "v", "1", 1, REG_TYPE_BINARY, 0, REG_LEVEL_ABSOLUTE), 0);
    expect_failure(ERR_REG_SETKEY);
    ASSERT_EQ(reg_set_key_value("S\\Run\\Sub", "v", "3", 1, REG_TYPE_BINARY, 1, REG_LEVEL_ABSOLUTE), 1);
    std::string text = read_file(file_);
    ASSERT_NE(text.find("[S\\Run] volatile\n"), std::string::npos) << text;
    size_t boot = text.find("\nboot ");
    if (boot == std::string::npos) {
        GTEST_SKIP() << "this system offers no boot id, so a file hive keeps volatile keys";
    }
    // The same file as another boot would find it.
    size_t end = text.find('\n', boot + 1);
    write_file(file_, text.substr(0, boot) + "\nboot another-boot" + text.substr(end));
    EXPECT_EQ(value_of("S\\Run", "v"), "<failed>");
    expect_failure(ERR_REG_OPENKEY);
    EXPECT_EQ(value_of("S\\Run\\Sub", "v"), "<failed>");
    EXPECT_EQ(value_of("S", "kept"), "2");
}

TEST_F(FileRegistry, AWriterWaitsForTheLockAndGivesUpOnlyAfterItsLimit) {
    ASSERT_EQ(set("A", "v", "old", REG_TYPE_BINARY), 1);
    const std::string before = read_file(file_);
    const std::string lock = file_ + ".lock";
    ASSERT_EQ(gf_lock_wait_file(lock.c_str(), 0), 1);  // a holder that never lets go
    for (const char *wait : {"0", "150"}) {
        set_env(kLockWaitVariable, wait);
        EXPECT_EQ(set("A", "v", "new", REG_TYPE_BINARY), 0) << wait;
        EXPECT_EQ(err_get_error_code(0), ERR_REG_LOCK) << err_get_error_msg();
        EXPECT_EQ(err_get_error_code(1), ERR_FIL_LOCK);
        EXPECT_EQ(read_file(file_), before);
    }
    // Readers take no lock.
    EXPECT_EQ(value_of("A", "v"), "old");

    // With no limit the writer waits for as long as it takes: it has to
    // report back only after the holder let go, whenever that is.
    set_env(kLockWaitVariable, "-1");
    vq::test::LockStep started(2);
    int status = -1;
    std::thread writer([&] {
        new_reg_set_filename(file_.c_str());
        started.arrive_and_wait();
        status = set("A", "v", "new", REG_TYPE_BINARY);
    });
    started.arrive_and_wait();
    EXPECT_EQ(read_file(file_), before);
    ASSERT_EQ(gf_unlock_file(lock.c_str()), 1);
    writer.join();
    EXPECT_EQ(status, 1);
    EXPECT_EQ(value_of("A", "v"), "new");
}

TEST_F(FileRegistry, ConcurrentWritersOfThreadsAndProcessesLoseNoValue) {
    set_env(kLockWaitVariable, "-1");  // turns are not timed
    constexpr int kWriters = 4;
    constexpr int kValues = 15;
    auto write_all = [&](const std::string &who) {
        bool ok = true;
        for (int n = 0; n < kValues; ++n) {
            std::string name = who + "_" + std::to_string(n);
            ok = set("Shared\\" + std::to_string(n % 3), name.c_str(), name, REG_TYPE_STRING) == 1 && ok;
        }
        return ok;
    };
    std::vector<std::string> writers;
#if !defined(_WIN32)
    // Processes wait at a pipe that the parent closes once all are forked.
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    std::vector<pid_t> children;
    for (int p = 0; p < kWriters; ++p) {
        writers.push_back("process" + std::to_string(p));
        std::fflush(nullptr);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(gate[1]);
            char byte;
            ssize_t got = ::read(gate[0], &byte, 1);
            ::_exit(got == 0 && write_all(writers.back()) ? 0 : 1);
        }
        children.push_back(child);
    }
    ::close(gate[0]);
#endif
    vq::test::LockStep start(kWriters + 1);
    std::vector<std::thread> threads;
    std::vector<int> ok(kWriters, 0);
    for (int t = 0; t < kWriters; ++t) {
        writers.push_back("thread" + std::to_string(t));
        threads.emplace_back([&, t, who = writers.back()] {
            new_reg_set_filename(file_.c_str());
            start.arrive_and_wait();
            ok[t] = write_all(who) ? 1 : 0;
        });
    }
#if !defined(_WIN32)
    ::close(gate[1]);
#endif
    start.arrive_and_wait();
    for (std::thread &t : threads) {
        t.join();
    }
#if !defined(_WIN32)
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a writer process failed";
    }
#endif
    for (int t = 0; t < kWriters; ++t) {
        EXPECT_EQ(ok[t], 1) << "thread " << t;
    }
    for (const std::string &who : writers) {
        for (int n = 0; n < kValues; ++n) {
            std::string name = who + "_" + std::to_string(n);
            EXPECT_EQ(value_of("Shared\\" + std::to_string(n % 3), name.c_str()), name);
        }
    }
    EXPECT_FALSE(fs::exists(file_ + ".lock"));
}

#if defined(__linux__)
TEST_F(FileRegistry, LinuxAWriterKilledAtAnyFileCallLeavesTheOldFileOrTheNew) {
    ASSERT_EQ(set("Kill", "a", "first", REG_TYPE_BINARY), 1);
    ASSERT_EQ(set("Kill", "b", std::string(5000, 'b'), REG_TYPE_BINARY), 1);
    const std::string old_text = read_file(file_);
    auto change = [&] { return set("Kill\\New", "c", std::string(3000, 'c'), REG_TYPE_BINARY) == 1; };
    ASSERT_TRUE(change());
    const std::string new_text = read_file(file_);
    auto reset = [&] {
        std::remove((file_ + ".lock").c_str());
        std::remove((file_ + ".temp").c_str());
        write_file(file_, old_text);
    };
    int first_new = 0;
    auto check = [&](int round) {
        const std::string text = read_file(file_);
        ASSERT_TRUE(text == old_text || text == new_text) << "a torn file of " << text.size() << " bytes";
        first_new = first_new == 0 && text == new_text ? round : first_new;
        ASSERT_TRUE(first_new == 0 || text == new_text) << "the old file came back";
        std::remove((file_ + ".lock").c_str());
        EXPECT_EQ(value_of("Kill", "a"), "first");
    };
    int calls = 0;
    ASSERT_NO_FATAL_FAILURE(vq::test::kill_at_every_call(reset, change, check, &calls));
    if (IsSkipped()) {
        return;
    }
    EXPECT_EQ(read_file(file_), new_text);
    EXPECT_GT(first_new, 1);
    std::printf("killed at each of %d calls that change files\n", calls);
}
#endif

}  // namespace
