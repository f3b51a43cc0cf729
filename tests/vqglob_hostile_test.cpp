// The deployment daemon against a hostile client built here from typed
// messages and raw parts: names that lead out of the target root, requests
// out of order, an oversized part and a client that stops in the middle of a
// file. The daemon refuses or drops with a logged reason, writes nothing
// outside the root and goes on serving.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>

#include "../examples/vqglob/protocol.h"
#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"
#include "vqglob_harness.h"

namespace {

namespace fs = std::filesystem;
using namespace vqglob_test;
using namespace vq::test;

#ifndef _WIN32

// Every regular file below dir, relative, but the daemon's remembered CRCs.
std::vector<std::string> files_below(const fs::path &dir) {
    std::vector<std::string> names;
    if (fs::exists(dir)) {
        for (auto &entry : fs::recursive_directory_iterator(dir)) {
            if (fs::is_regular_file(entry.symlink_status()) && entry.path().filename() != ".vqglob-crc-cache") {
                names.push_back(fs::relative(entry.path(), dir).generic_string());
            }
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A client speaking the protocol by hand.
class RawClient {
public:
    explicit RawClient(const std::string &port) : session_(client_for(static_cast<uint16_t>(std::stoi(port)))) {
        EXPECT_EQ(sl_net_connect(session_), 1) << err_get_error_msg();
    }
    ~RawClient() { free_session(session_); }

    // Sends the request fill writes after its operation; the reply's status
    // (-1 when none came) and, for a refusal, the daemon's error text.
    int32_t request(int32_t op, const std::function<void(void *)> &fill, std::string *error = nullptr) {
        Message out;
        slm_set_int(out.get(), vqglob::kOp, op);
        fill(out.get());
        Message in;
        if (slm_send(out.get(), session_, 1) != 1 || slm_recv(in.get(), session_) != 1) {
            return -1;
        }
        int32_t status = -1;
        slm_get_int_by_code(in.get(), vqglob::kStatus, &status);
        void *data = nullptr;
        uint32_t length = 0;
        uint16_t code = 0;
        if (status != vqglob::kStatusOk && slm_get_code(in.get(), &code) == 1 && code == vqglob::kErrorStack &&
            slm_get_void(in.get(), &data, &length) == 1 && error != nullptr) {
            err_set_stack_desc(data, static_cast<int32_t>(length), static_cast<int32_t>(length / sizeof(err_entry)));
            *error = err_get_error_msg();
            err_clear_error_stack();
        }
        return status;
    }
    int32_t hello() {
        return request(vqglob::kHello, [](void *m) {
            slm_set_int(m, vqglob::kVersion, vqglob::kProtocolVersion);
            slm_set_int(m, vqglob::kFlags, 0);
        });
    }
    // FILES with one file named name whose data is file's.
    int32_t send_file(const std::string &name, const fs::path &file, std::string *error) {
        Bytes data = read_file(file);
        vqglob::FileEntry meta;
        meta.size = data.size();
        meta.mtime = 1500000000;
        meta.mode = 0644;
        meta.crc = crc32_of(data);
        std::string packed = vqglob::pack_meta(meta);
        return request(
            vqglob::kFiles,
            [&](void *m) {
                slm_set_string(m, vqglob::kFileName, name.c_str());
                slm_set_void(m, vqglob::kFileMeta, packed.data(), vqglob::kMetaBytes);
                slm_set_att(m, vqglob::kFileData, file.c_str(), 1);
            },
            error);
    }
    void send_raw(const Bytes &bytes) {
        EXPECT_EQ(sl_net_send(session_, bytes.data(), static_cast<int32_t>(bytes.size()), nullptr), 1);
    }

private:
    void *session_;
};

class VqglobHostile : public ::testing::Test {
protected:
    void SetUp() override {
        if (kTool == nullptr) {
            GTEST_SKIP() << "the tool is not built";
        }
        sl_net_init();
        fs::create_directories(outside());
        fs::create_directories(src());
        write_file(src() / "payload", pattern(70000, 7));
        write_file(outside() / "victim", pattern(10, 1));
    }
    void TearDown() override { sl_net_clean(); }
    fs::path outside() const { return scratch_.path() / "outside"; }
    fs::path src() const { return scratch_.path() / "src"; }
    // A whole deployment by the real client still works.
    void expect_still_serving(Daemon &d) {
        ToolResult run = run_tool({"deploy", src().string(), "-to=" + d.target(), "-insecure"});
        EXPECT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(read_file(d.root() / "payload"), read_file(src() / "payload"));
    }

    ScratchDir scratch_{"vqglob_hostile"};
};

TEST_F(VqglobHostile, NamesLeadingOutOfTheRootAreRefusedAndNothingIsWrittenThere) {
    Daemon d(scratch_.path(), "");
    fs::create_directory_symlink(outside(), d.root() / "link");
    fs::create_directories(d.root() / "dir");
    RawClient client(d.port());
    ASSERT_EQ(client.hello(), vqglob::kStatusOk);
    const std::vector<std::string> refused = {"../escape",  "dir/../../escape", "/tmp/abs", (outside() / "x").string(),
                                              "link/evil",  "link/sub/evil",    "dir//x",   "./x",
                                              "a\\..\\x",   "current/x",        ".vqglob-tmp/x", "dir"};
    for (const std::string &name : refused) {
        std::string error;
        EXPECT_EQ(client.send_file(name, src() / "payload", &error), vqglob::kStatusFailed) << name;
        EXPECT_NE(error.find("refused file name <" + name + ">"), std::string::npos) << name << ": " << error;
    }
    for (const char *name : {"../outside/victim", "link/victim"}) {
        std::string error;
        EXPECT_EQ(client.request(vqglob::kDelete,
                                 [&](void *m) {
                                     std::string names = std::string(name) + '\0';
                                     slm_set_void(m, vqglob::kDeleteNames, names.data(),
                                                  static_cast<uint32_t>(names.size()));
                                 },
                                 &error),
                  vqglob::kStatusFailed)
            << name;
        EXPECT_NE(error.find("refused file name"), std::string::npos) << error;
    }
    EXPECT_EQ(files_below(outside()), std::vector<std::string>{"victim"});
    EXPECT_EQ(files_below(scratch_.path()),
              (std::vector<std::string>{"outside/victim", "serve.conf", "serve.log", "src/payload"}));
    EXPECT_GE(d.child().count_lines("FILES refused: GEN-E-GENERAL, refused file name <../escape>"), 1u);

    // A good name on the same connection after all that is still taken, but
    // the deployment is not committed.
    EXPECT_EQ(client.send_file("ok/payload", src() / "payload", nullptr), vqglob::kStatusOk);
    EXPECT_EQ(read_file(d.root() / "ok/payload"), read_file(src() / "payload"));
    std::string error;
    EXPECT_EQ(client.request(vqglob::kCommit, [](void *) {}, &error), vqglob::kStatusFailed);
    EXPECT_NE(error.find("not committed"), std::string::npos) << error;
}

TEST_F(VqglobHostile, RequestsOutOfOrderOrMalformedAreAnsweredWithTheReason) {
    Daemon d(scratch_.path(), "");
    RawClient client(d.port());
    std::string error;
    EXPECT_EQ(client.send_file("x", src() / "payload", &error), vqglob::kStatusFailed);
    EXPECT_NE(error.find("no deployment is open"), std::string::npos) << error;
    EXPECT_EQ(client.request(99, [](void *) {}, &error), vqglob::kStatusFailed);
    EXPECT_NE(error.find("unknown operation 99"), std::string::npos) << error;
    EXPECT_EQ(client.request(vqglob::kHello, [](void *m) { slm_set_int(m, vqglob::kVersion, 77); }, &error),
              vqglob::kStatusFailed);
    EXPECT_NE(error.find("protocol version 77"), std::string::npos) << error;
    ASSERT_EQ(client.hello(), vqglob::kStatusOk);
    // A file whose bytes do not match its CRC is not put in place.
    std::string packed;
    EXPECT_EQ(client.request(vqglob::kFiles,
                             [&](void *m) {
                                 vqglob::FileEntry meta;
                                 meta.size = 70000;
                                 meta.crc = 12345;
                                 packed = vqglob::pack_meta(meta);
                                 slm_set_string(m, vqglob::kFileName, "damaged");
                                 slm_set_void(m, vqglob::kFileMeta, packed.data(), vqglob::kMetaBytes);
                                 slm_set_att(m, vqglob::kFileData, (src() / "payload").c_str(), 1);
                             },
                             &error),
              vqglob::kStatusFailed);
    EXPECT_NE(error.find("arrived damaged"), std::string::npos) << error;
    EXPECT_FALSE(fs::exists(d.root() / "damaged"));
    EXPECT_EQ(client.request(vqglob::kReleases, [](void *) {}), vqglob::kStatusOk);  // the connection goes on
}

TEST_F(VqglobHostile, OversizedPartsAndAClientStoppingMidFileDropOnlyThatConnection) {
    Daemon d(scratch_.path(), "");
    {
        RawClient client(d.port());
        client.send_raw(part_header(SLM_MSG_SIZE_CODE, SLM_MAX_PART_SIZE + 1, SLM_LAST_MSG_CODE, SLM_PART_BODY_LAST));
        d.child().wait_line(": closed", 1);
    }
    EXPECT_GE(d.child().count_lines("connection ended"), 1u);
    {
        RawClient client(d.port());
        ASSERT_EQ(client.hello(), vqglob::kStatusOk);
        Bytes part = part_header(SLM_MSG_SIZE_CODE, SLM_MAX_PART_SIZE, SLM_LAST_MSG_CODE, SLM_PART_BINARY_MORE);
        Bytes half = pattern(SLM_MAX_PART_SIZE / 2, 3);
        part.insert(part.end(), half.begin(), half.end());
        client.send_raw(part);
    }
    d.child().wait_line(": closed", 2);
    EXPECT_TRUE(files_below(d.root()).empty());
    expect_still_serving(d);
    d.wait_connections_closed();
    EXPECT_EQ(files_below(d.root()), std::vector<std::string>{"payload"});
}

#endif

}  // namespace
