// Configuration output as XML (compared byte for byte, header, root, escaping,
// tag-name repairs) and encrypted values: the string round trip, wrong keys
// and damaged texts, and encrypted fields written and read through a table.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"

namespace {

namespace fs = std::filesystem;

class ConfXml : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        ASSERT_EQ(conf_allocate_handle(&h_), 1);
    }
    void TearDown() override {
        conf_free_handle(&h_);
        for (const std::string &p : created_) {
            std::error_code ec;
            fs::remove(p, ec);
        }
    }
    std::string path(const std::string &name) {
        created_.push_back(::testing::TempDir() + "vq_conf_xml_" + name);
        return created_.back();
    }
    static std::string read_all(const std::string &p) {
        std::ifstream in(p, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    static std::string written(void *h) {
        char *buffer = nullptr;
        EXPECT_EQ(conf_write_buffer(h, &buffer), 1) << err_get_error_msg();
        std::string out = buffer != nullptr ? buffer : "";
        conf_free_buffer(buffer);
        return out;
    }

    void *h_ = nullptr;
    std::vector<std::string> created_;
};

// A configuration touching every rule of the XML writer, and its output
// without the header.
constexpr const char *kInput =
    "[General]\n"
    "Name=a<b&c\n"
    "Quote=\"it's\" > x\n"
    "1stValue=7\n"
    "XmlStuff=v\n"
    "List=_ml_text_\n"
    "one\n"
    "t&wo\n"
    "_ml_text_\n"
    "[Max Size]\n"
    "Limit=10\n";

constexpr const char *kIllegalComment =
    "<!--The specified xml text was in original not well-formed.\n"
    "The original name [%s] contained invalid characters.\n"
    "A name which contains one of the characters: {  ] [ ! $ * + , ; = @ { } ( ) | ~ < > ? / & \\ ' \" # % ^ "
    "` : "
    "and blanks  } is illegal.\n"
    "Those characters were replaced by ' _ '. -->\n";

std::string illegal_comment(const char *name) {
    std::string text = kIllegalComment;
    text.replace(text.find("%s"), 2, name);
    return text;
}

std::string expected_body() {
    return std::string(
               "<Configuration_XML_Root>\n"
               "<General>\n"
               "\t<Name>a&lt;b&amp;c</Name>\n"
               "\t<Quote>&quot;it&apos;s&quot; &gt; x</Quote>\n"
               "<!--The specified xml text was in original not well-formed.\n"
               "The original name [1stValue] started with a number.\n"
               "To avoid that, a character ' _ ' was added at the beginning.-->\n"
               "\t<_1stValue>7</_1stValue>\n"
               "<!--The specified xml text was in original not well-formed.\n"
               "The original name [XmlStuff] contained the name \"xml\", which is reserved and must be "
               "lowercase.\n"
               "To avoid that, a character ' _ ' was added at the beginning.-->\n"
               "\t<_XmlStuff>v</_XmlStuff>\n"
               "\t<List>\n"
               "\t   <line>one</line>\n"
               "\t   <line>t&amp;wo</line>\n"
               "\t</List>\n") +
           illegal_comment("a=b") +
           "\t<a_b></a_b>\n"
           "</General>\n" +
           illegal_comment("Max Size") +
           "<Max_Size>\n"
           "\t<Limit>10</Limit>\n"
           "</Max_Size>\n"
           "</Configuration_XML_Root>\n";
}

TEST_F(ConfXml, BufferAndFileFollowTheXmlSettingWithAndWithoutHeader) {
    ASSERT_EQ(conf_read_buffer_to_handle(h_, kInput), 1) << err_get_error_msg();
    ASSERT_EQ(conf_add_field_to_section(h_, "General", "a=b"), 1);
    EXPECT_EQ(conf_is_write_to_XML(h_), 0);
    EXPECT_EQ(written(h_).rfind("[General]\n", 0), 0u);

    ASSERT_EQ(conf_set_use_write_to_XML(h_, 1), 1);
    EXPECT_EQ(conf_is_write_to_XML(h_), 1);
    ASSERT_EQ(conf_set_write_XML_header(h_, 0), 1);
    EXPECT_EQ(written(h_), expected_body());

    // The header is on by default; the file is the buffer with the line ends
    // of a text-mode file.
    ASSERT_EQ(conf_set_write_XML_header(h_, 1), 1);
    std::string file = path("header.xml");
    ASSERT_EQ(conf_write(h_, file.c_str()), 1) << err_get_error_msg();
    std::string text = read_all(file);
#if defined(_WIN32)
    text = std::regex_replace(text, std::regex("\r\n"), "\n");
#endif
    EXPECT_EQ(text, written(h_));
    std::regex header(
        "<\\?xml version='1.0'\\?>\n"
        "<!-- This XML file was produced by Velquist Inc.-->\n"
        "<!-- XML Processor Built at [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2} -->\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(text, match, header, std::regex_constants::match_continuous)) << text;
    EXPECT_EQ(text.substr(static_cast<size_t>(match.length(0))), expected_body());

    ASSERT_EQ(conf_set_use_write_to_XML(h_, 0), 1);
    EXPECT_EQ(written(h_).rfind("[General]\n", 0), 0u);
}

TEST_F(ConfXml, RootIsConfigurableAndRepairedLikeAnyName) {
    ASSERT_EQ(conf_set_use_write_to_XML(h_, 1), 1);
    ASSERT_EQ(conf_set_write_XML_header(h_, 0), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[s--x]\nxmlish=1\n"), 1);
    ASSERT_EQ(conf_set_XML_root(h_, "my root"), 1);
    // "--" may not stand inside a comment, so the name shown there is split.
    EXPECT_EQ(written(h_),
              illegal_comment("my root") + "<my_root>\n<s--x>\n" +
                  "<!--The specified xml text was in original not well-formed.\n"
                  "The original name [xmlish] contained the name \"xml\", which is reserved and must "
                  "be lowercase.\n"
                  "To avoid that, a character ' _ ' was added at the beginning.-->\n"
                  "\t<_xmlish>1</_xmlish>\n</s--x>\n</my_root>\n");
    ASSERT_EQ(conf_rename_section(h_, "s--x", "1 a--b"), 1);
    std::string out = written(h_);
    EXPECT_NE(out.find("[1 a- -b] contained invalid"), std::string::npos) << out;
    EXPECT_NE(out.find("[1 a- -b] started with a number"), std::string::npos) << out;
    EXPECT_NE(out.find("\n<_1_a--b>\n"), std::string::npos) << out;

    EXPECT_EQ(conf_set_XML_root(h_, ""), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(conf_set_use_write_to_XML(nullptr, 1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

// ---- Well-formed whatever the values and names hold ---------------------------------

#define R "\xEF\xBF\xBD"  // U+FFFD as UTF-8

// What xmllint, a real XML parser, says of the file: empty when it is
// well-formed. Skips the calling test when there is no xmllint to ask.
#define EXPECT_WELL_FORMED(file)                                                                     \
    do {                                                                                             \
        if (std::system("xmllint --version > /dev/null 2>&1") != 0) {                                \
            GTEST_SKIP() << "xmllint (Debian package libxml2-utils) is not installed: the written " \
                            "XML cannot be parsed";                                                  \
        }                                                                                            \
        EXPECT_EQ(xmllint_errors(file), "");                                                         \
    } while (0)

#if !defined(_WIN32)
std::string xmllint_errors(const std::string &file) {
    std::string command = "xmllint --noout '" + file + "' 2>&1";
    FILE *pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return "cannot run xmllint";
    }
    std::string said;
    char chunk[512];
    size_t got = 0;
    while ((got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0) {
        said.append(chunk, got);
    }
    int status = ::pclose(pipe);
    return status == 0 && said.empty() ? "" : "xmllint status " + std::to_string(status) + ": " + said;
}
#endif

TEST_F(ConfXml, ControlsBadUtf8AndNonCharactersNeverReachTheDocument) {
    ASSERT_EQ(conf_set_use_write_to_XML(h_, 1), 1);
    ASSERT_EQ(conf_set_write_XML_header(h_, 1), 1);
    // (A buffer read ends at a byte 0xFF, so none stands in the text.)
    ASSERT_EQ(conf_read_buffer_to_handle(h_,
                                         "[sec\x02tion]\n"
                                         "Ctl=a\x01" "b\tc\x7f\xc2\x85" "d\r e\x1f\n"
                                         "Bad=\xfe\xc0\xaf|\xed\xa0\x80|\xf4\x90\x80\x80|\xe2\x82\n"
                                         "Non=x\xef\xbf\xbey\xef\xbf\xbfz\xef\xb7\x90\n"
                                         "Ok=\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\n"
                                         "n\xfeme=1\n"
                                         "a:b=2\n"
                                         "\xc3\xa9t\xc3\xa9=3\n"
                                         "\xc2\xb7x=4\n"
                                         "\x01--=5\n"
                                         "List=_ml_text_\n"
                                         "l\x0bine\n"
                                         "_ml_text_\n"),
              1)
        << err_get_error_msg();
    ASSERT_EQ(conf_add_field_to_section(h_, "sec\x02tion", "Lf"), 1);
    ASSERT_EQ(conf_set_string_field(h_, "sec\x02tion", "Lf", "one\ntwo"), 1) << err_get_error_msg();
    std::string file = path("hostile.xml");
    ASSERT_EQ(conf_write(h_, file.c_str()), 1) << err_get_error_msg();

    std::string out = written(h_);
    for (const char *expected : {
             "\n<sec_tion>\n",
             // White space and the controls XML allows as references; the others replaced.
             "\t<Ctl>a" R "b&#9;c&#127;&#133;d&#13; e" R "</Ctl>\n",
             "\t<Lf>one&#10;two</Lf>\n",
             // One U+FFFD per byte that begins no UTF-8 character: a stray
             // byte, an overlong lead, a surrogate, a value past U+10FFFF, a
             // sequence cut short.
             "\t<Bad>" R R R "|" R R R "|" R R R R "|" R R "</Bad>\n",
             // U+FFFE and U+FFFF cannot be carried; U+FDD0 can.
             "\t<Non>x" R "y" R "z\xef\xb7\x90</Non>\n",
             "\t<Ok>\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80</Ok>\n",
             "\t   <line>l" R "ine</line>\n",
             // Names keep what a name may hold and say what they lost.
             "The original name [n" R "me] contained invalid characters.",
             "\t<n_me>1</n_me>\n",
             "The original name [a:b] contained invalid characters.",
             "\t<a_b>2</a_b>\n",
             "</a_b>\n\t<\xc3\xa9t\xc3\xa9>3</\xc3\xa9t\xc3\xa9>\n",
             "\t<_x>4</_x>\n",
             "The original name [" R "- -] contained invalid characters.",
             "\t<_-->5</_-->\n",
         }) {
        EXPECT_NE(out.find(expected), std::string::npos) << "missing " << expected << " in\n" << out;
    }
    // The name that needed no repair has no comment before it.
    EXPECT_EQ(out.find("[\xc3\xa9t\xc3\xa9]"), std::string::npos) << out;

#if defined(_WIN32)
    GTEST_SKIP() << "the written file is parsed with xmllint, which the Windows test runs do not have";
#else
    EXPECT_WELL_FORMED(file);
#endif
}

#undef R

// ---- Encryption ---------------------------------------------------------------------

// Encryption needs libcrypto: on Linux it must load; a Windows machine (Wine
// in the test runs) may have no libcrypto DLL, and then every use fails.
#define REQUIRE_ENCRYPTION()                                                            \
    do {                                                                                \
        if (conf_is_encryption_available() == 0) {                                      \
            char *out_ = nullptr;                                                       \
            EXPECT_EQ(conf_encrypt_string("key", "value", &out_), 0);                   \
            EXPECT_EQ(err_get_error_code(0), ERR_CNF_ENCRYPT);                          \
            if (kMustHaveCrypto) {                                                      \
                FAIL() << "libcrypto could not be loaded: " << err_get_error_msg();     \
            }                                                                           \
            GTEST_SKIP() << "no libcrypto DLL on this system: " << err_get_error_msg(); \
        }                                                                               \
    } while (0)

#if defined(_WIN32)
constexpr bool kMustHaveCrypto = false;
#else
constexpr bool kMustHaveCrypto = true;
#endif

std::string encrypt(const char *key, const std::string &plain) {
    char *out = nullptr;
    EXPECT_EQ(conf_encrypt_string(key, plain.c_str(), &out), 1) << err_get_error_msg();
    std::string text = out != nullptr ? out : "";
    conf_free_buffer(out);
    return text;
}

// The status of deciphering text, given in a block of exactly its size so
// that a read past its end is caught by the sanitizers.
int decrypt(const char *key, const std::string &text, std::string *plain = nullptr) {
    char *exact = static_cast<char *>(std::malloc(text.size() + 1));
    std::memcpy(exact, text.c_str(), text.size() + 1);
    char *out = nullptr;
    err_clear_error_stack();
    int status = conf_decrypt_string(key, exact, &out);
    std::free(exact);
    if (status != 0 && plain != nullptr) {
        *plain = out;
    }
    conf_free_buffer(out);
    return status;
}

// First among the encryption tests, so that the threads race to load
// libcrypto; then each uses the cipher while the others do.
TEST(ConfEncrypt, ThreadsLoadAndUseTheCipherAtOnce) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &failures] {
            std::string key = "key " + std::to_string(t % 3);
            std::string plain = "value of thread " + std::to_string(t);
            for (int i = 0; i < 50; ++i) {
                char *text = nullptr;
                char *back = nullptr;
                if (conf_encrypt_string(key.c_str(), plain.c_str(), &text) != 1 ||
                    conf_decrypt_string(key.c_str(), text, &back) != 1 || plain != back) {
                    ++failures;
                }
                conf_free_buffer(text);
                conf_free_buffer(back);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    REQUIRE_ENCRYPTION();
    EXPECT_EQ(failures.load(), 0);
}

TEST(ConfEncrypt, RoundTripsAnyTextUnderAnyKeyAsPrintableText) {
    REQUIRE_ENCRYPTION();
    std::string binary;
    for (int i = 0; i < 600; ++i) {
        binary += static_cast<char>(1 + i % 255);
    }
    std::vector<std::string> plains = {
        "", "x", "1234567", "12345678", "123456789", std::string(10240, 'q'), binary};
    const char *keys[] = {nullptr, "k", "a much longer key than the eight bytes of a DES key"};
    for (const char *key : keys) {
        for (const std::string &plain : plains) {
            std::string text = encrypt(key, plain);
            EXPECT_EQ(
                text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/="),
                std::string::npos);
            if (plain.size() >= 4) {
                EXPECT_EQ(text.find(plain.substr(0, 4)), std::string::npos);
            }
            std::string back;
            EXPECT_EQ(decrypt(key, text, &back), 1) << err_get_error_msg();
            EXPECT_EQ(back, plain) << "key " << (key != nullptr ? key : "(built in)");
        }
    }
    // Values with a common prefix differ from the first cipher block on.
    EXPECT_NE(encrypt("k", "password1").substr(0, 10), encrypt("k", "password2").substr(0, 10));
}

TEST(ConfEncrypt, WrongKeysAndDamagedTextsFailAsEncryptionErrors) {
    REQUIRE_ENCRYPTION();
    std::string text = encrypt("alpha", "the secret value");
    EXPECT_EQ(decrypt("alpha", text), 1);
    for (const char *key : {"beta", "alphA", "alpha ", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(decrypt(key, text), 0) << key;
        EXPECT_EQ(err_get_error_code(0), ERR_CNF_ENCRYPT);
    }
    std::vector<std::string> damaged = {"",
                                        "====",
                                        text.substr(0, text.size() - 1),
                                        text.substr(0, 12),
                                        text + "AAAA",
                                        text + "AAAAAAAAAAA="};
    std::string flipped = text;
    flipped[5] = flipped[5] == 'A' ? 'B' : 'A';
    damaged.push_back(flipped);
    std::string bad_char = text;
    bad_char[3] = '*';
    damaged.push_back(bad_char);
    // The same bytes with non-zero bits under the padding are not canonical.
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string stray = encrypt("alpha", "1234");  // 16 bytes: "==" at the end
    size_t last_digit = stray.find('=') - 1;
    ASSERT_LT(last_digit, stray.size());
    stray[last_digit] = digits[digits.find(stray[last_digit]) | 1];
    damaged.push_back(stray);
    for (const std::string &bad : damaged) {
        EXPECT_EQ(decrypt("alpha", bad), 0) << bad;
        EXPECT_EQ(err_get_error_code(0), ERR_CNF_ENCRYPT) << bad;
    }
    char *out = nullptr;
    EXPECT_EQ(conf_encrypt_string("k", nullptr, &out), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(conf_decrypt_string("k", "AAAAAAAAAAA=", nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

// ---- Encrypted fields -------------------------------------------------------------------

// The password uses the handle's key, the pin its section's, the token its own.
const conf_table_row kSecretTable[] = {
    {1, "Account", CONF_TYPE_SECTION, nullptr, 0, 0, nullptr},
    {2, "User", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {3, "Password", CONF_TYPE_STRING, nullptr, 0, CONF_FLAG_ENCRYPTED, nullptr},
    {4, "Hosts", CONF_TYPE_ML_TEXT, nullptr, 0, CONF_FLAG_ENCRYPTED, nullptr},
    {5, "Vault", CONF_TYPE_SECTION, nullptr, 0, 0, "section key"},
    {6, "Pin", CONF_TYPE_STRING, nullptr, 0, CONF_FLAG_ENCRYPTED, nullptr},
    {7, "Token", CONF_TYPE_STRING, nullptr, 0, CONF_FLAG_ENCRYPTED, "field key"},
};
constexpr int32_t kSecretRows = sizeof kSecretTable / sizeof kSecretTable[0];
const char *const kSecrets[] = {"pa ss=word<1>", "alpha.example", "beta.example", "4711-pin", "tok-secret"};

// The value of the first "name=" line of a configuration text.
std::string value_in(const std::string &text, const std::string &name) {
    size_t at = text.find("\n" + name + "=");
    if (at == std::string::npos) {
        return {};
    }
    at += name.size() + 2;
    return text.substr(at, text.find_first_of("\r\n", at) - at);
}

// A new handle bound to the table, with the handle key, reading file: the
// read's status.
int read_secrets(const std::string &file, const char *handle_key, void **out) {
    EXPECT_EQ(conf_allocate_handle(out), 1);
    EXPECT_EQ(conf_set_table(*out, kSecretTable, kSecretRows), 1) << err_get_error_msg();
    EXPECT_EQ(conf_set_encryption_to_handle(*out, handle_key), 1);
    err_clear_error_stack();
    return conf_read_file_to_handle(*out, file.c_str());
}

bool stack_holds(uint32_t code) {
    for (int32_t n = 0; n < err_get_stack_depth(); ++n) {
        if (err_get_error_code(n) == code) {
            return true;
        }
    }
    return false;
}

using ConfEncryptedFields = ConfXml;

TEST_F(ConfEncryptedFields, AreStoredEncipheredUnderTheirKeyAndReadBack) {
    REQUIRE_ENCRYPTION();
    ASSERT_EQ(conf_set_table(h_, kSecretTable, kSecretRows), 1) << err_get_error_msg();
    ASSERT_EQ(conf_set_encryption_to_handle(h_, "handle key"), 1);
    char *hosts[] = {const_cast<char *>(kSecrets[1]), const_cast<char *>(kSecrets[2]), nullptr};
    ASSERT_EQ(conf_set_string_field(h_, "Account", "User", "bob"), 1) << err_get_error_msg();
    ASSERT_EQ(conf_set_string_field(h_, "Account", "Password", kSecrets[0]), 1) << err_get_error_msg();
    ASSERT_EQ(conf_set_ml_string_field(h_, "Account", "Hosts", hosts), 1) << err_get_error_msg();
    ASSERT_EQ(conf_set_string_field(h_, "Vault", "Pin", kSecrets[3]), 1) << err_get_error_msg();
    ASSERT_EQ(conf_set_string_field(h_, "Vault", "Token", kSecrets[4]), 1) << err_get_error_msg();
    std::string file = path("secrets.conf");
    ASSERT_EQ(conf_write(h_, file.c_str()), 1) << err_get_error_msg();

    std::string text = read_all(file);
    EXPECT_NE(text.find("User=bob"), std::string::npos) << text;
    ASSERT_EQ(conf_set_use_write_to_XML(h_, 1), 1);
    std::string xml = written(h_);
    EXPECT_NE(xml.find("<User>bob</User>"), std::string::npos) << xml;
    for (const char *secret : kSecrets) {
        EXPECT_EQ(text.find(secret), std::string::npos) << secret;
        EXPECT_EQ(xml.find(secret), std::string::npos) << secret;
    }
    // Each field took the key its chain gives.
    std::string plain;
    EXPECT_EQ(decrypt("handle key", value_in(text, "Password"), &plain), 1);
    EXPECT_EQ(plain, kSecrets[0]);
    EXPECT_EQ(decrypt("section key", value_in(text, "Pin"), &plain), 1);
    EXPECT_EQ(plain, kSecrets[3]);
    EXPECT_EQ(decrypt("field key", value_in(text, "Token"), &plain), 1);
    EXPECT_EQ(plain, kSecrets[4]);

    void *back = nullptr;
    ASSERT_EQ(read_secrets(file, "handle key", &back), 1) << err_get_error_msg();
    char *value = nullptr;
    char **list = nullptr;
    ASSERT_EQ(conf_get_string_field(back, "Account", "Password", &value), 1) << err_get_error_msg();
    EXPECT_STREQ(value, kSecrets[0]);
    ASSERT_EQ(conf_get_ml_string_field(back, "Account", "Hosts", &list), 1) << err_get_error_msg();
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(list[0], kSecrets[1]);
    EXPECT_STREQ(list[1], kSecrets[2]);
    ASSERT_EQ(conf_get_string_field(back, "Vault", "Token", &value), 1) << err_get_error_msg();
    EXPECT_STREQ(value, kSecrets[4]);
    conf_free_handle(&back);

    EXPECT_EQ(read_secrets(file, "another key", &back), 0);
    EXPECT_TRUE(stack_holds(ERR_CNF_ENCRYPT)) << err_get_error_msg();
    conf_free_handle(&back);
}

}  // namespace
