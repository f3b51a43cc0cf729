// Typed messages over a loopback connection: the parts that go on the wire,
// what the receiver makes of them (attachments in temporary files or under
// their names on the target), and what it refuses from a hostile peer.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/hash.h"
#include "vq_glob/slm.h"

namespace fs = std::filesystem;

namespace {

using namespace vq::test;
using Parts = std::vector<std::pair<uint32_t, uint16_t>>;

void set_write_time(const fs::path &path, int64_t unix_seconds) {
    const auto when = std::chrono::system_clock::time_point(std::chrono::seconds(unix_seconds));
    fs::last_write_time(path, std::chrono::file_clock::from_sys(when));
}

// Attachment information as a peer sends it ahead of a named attachment.
Bytes info_bytes(const std::string &name, int32_t replace) {
    return signed_message([&](void *h) {
        slm_set_string(h, SLM_ATT_NAME_ON_TARGET_VALUE, name.c_str());
        slm_set_int(h, SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE, replace);
    });
}

// slm_send (signed) on a thread of its own, so that a message larger than the
// socket buffers does not wait for a receiver on this thread.
std::future<int> send_async(void *message, void *session) {
    return std::async(std::launch::async, [=] { return slm_send(message, session, 1); });
}

Bytes small_body() {
    return signed_message([](void *h) { slm_set_int(h, 1, 42); });
}

// Each test has a directory of its own: the receiver's temp dir, with the
// files to send and the targets beside it.
class SlmTransfer : public NetTest {
protected:
    void SetUp() override {
        NetTest::SetUp();
        fs::create_directories(temp_);
        fs::create_directories(files_);
        ASSERT_EQ(slm_set_temp_dir(in_.get(), temp_.string().c_str()), 1);
    }

    fs::path file(const std::string &name, const Bytes &bytes) const {
        write_file(files_ / name, bytes);
        return files_ / name;
    }

    // Sends out_ (signed) and receives it into in_; the success indication.
    int32_t transfer(Connection &c) {
        auto send = send_async(out_.get(), c.client);
        int32_t full = -1;
        EXPECT_EQ(slm_recv_with_success_indication(in_.get(), c.server, &full), 1) << err_get_error_msg();
        EXPECT_EQ(send.get(), 1);
        return full;
    }

    struct Received {
        std::string name;
        int32_t mode = -1;
        int32_t status = -1;
        std::string why_not;
    };

    // Reads the attachment reference under code at the cursor of in_.
    Received next_attachment(uint16_t code) {
        Received got;
        uint16_t read_code = 0;
        EXPECT_EQ(slm_get_code(in_.get(), &read_code), 1);
        EXPECT_EQ(read_code, code);
        char *name = nullptr;
        char *why = nullptr;
        EXPECT_EQ(slm_get_att_and_status(in_.get(), &name, &got.mode, &got.status, &why), 1)
            << err_get_error_msg();
        got.name = name != nullptr ? name : "";
        got.why_not = why != nullptr ? why : "";
        std::free(name);
        std::free(why);
        return got;
    }

    // Sends out_, whose attachments carry codes 1, 2, ..., and checks which
    // were written; the references as received.
    std::vector<Received> transfer_expecting(Connection &c, const std::vector<bool> &written) {
        const bool all = std::find(written.begin(), written.end(), false) == written.end();
        EXPECT_EQ(transfer(c), all ? 1 : 0);
        std::vector<Received> got;
        for (size_t i = 0; i < written.size(); ++i) {
            got.push_back(next_attachment(static_cast<uint16_t>(i + 1)));
            EXPECT_EQ(got.back().status, written[i] ? 1 : 0) << "attachment " << i + 1;
            EXPECT_EQ(got.back().why_not.empty(), written[i]) << "attachment " << i + 1;
        }
        return got;
    }

    ScratchDir scratch_{"vq_slm_transfer_"};
    const fs::path base_ = scratch_.path();
    const fs::path temp_ = base_ / "temp";
    const fs::path files_ = base_ / "files";
    Message out_;
    Message in_;
};

// ---- The body -------------------------------------------------------------------------------

TEST_F(SlmTransfer, ElementsArriveIntactAndAReusedHandleHoldsOnlyTheNewMessage) {
    Connection c;
    const Bytes blob = pattern(70000, 1);  // three parts on the wire, joined again
    ASSERT_EQ(slm_set_int(out_.get(), 10, -5), 1);
    ASSERT_EQ(slm_set_string(out_.get(), 13, "hello"), 1);
    ASSERT_EQ(slm_set_void(out_.get(), 15, blob.data(), static_cast<uint32_t>(blob.size())), 1);
    EXPECT_EQ(transfer(c), 1);
    EXPECT_EQ(in_.bytes(), out_.bytes());

    // The same receiving handle again: nothing of the first message is left.
    ASSERT_EQ(slm_init_handle(out_.get()), 1);
    ASSERT_EQ(slm_set_int(out_.get(), 20, 99), 1);
    EXPECT_EQ(transfer(c), 1);
    EXPECT_EQ(in_.bytes(), out_.bytes());
    int32_t i = 0;
    EXPECT_EQ(slm_get_int_by_code(in_.get(), 20, &i), 1);
    EXPECT_EQ(i, 99);
}

TEST_F(SlmTransfer, BodySplitsIntoPartsOfAtMost32768Bytes) {
    Connection c;
    // A void of n bytes makes a signed message of 4 + 7 + n + 2 bytes.
    const struct {
        uint32_t void_size;
        Parts parts;
    } cases[] = {
        {32755, {{32768, SLM_PART_BODY_LAST}}},
        {32756, {{32768, SLM_PART_BODY_MORE}, {1, SLM_PART_BODY_LAST}}},
        {65524, {{32768, SLM_PART_BODY_MORE}, {32768, SLM_PART_BODY_MORE}, {1, SLM_PART_BODY_LAST}}},
        {0, {{6, SLM_PART_BODY_LAST}}},  // nothing trails the last part of the one before
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.void_size);
        ASSERT_EQ(slm_init_handle(out_.get()), 1);
        if (k.void_size != 0) {
            const Bytes blob = pattern(k.void_size, 2);
            ASSERT_EQ(slm_set_void(out_.get(), 3, blob.data(), k.void_size), 1);
        }
        auto send = send_async(out_.get(), c.client);
        const Bytes body = expect_parts(c.server, k.parts);
        ASSERT_EQ(send.get(), 1);
        EXPECT_EQ(body, out_.bytes());
    }
}

// ---- Attachments on the wire ----------------------------------------------------------------

TEST_F(SlmTransfer, AttachmentsGoAheadOfTheBodyInTableOrderWithTheirKindsIndications) {
    Connection c;
    const Bytes text = {'a', 'b', '\n', 'c', 'd'};
    const Bytes buffer = pattern(10, 3);
    const std::string target = (base_ / "target.bin").string();
    ASSERT_EQ(slm_set_att(out_.get(), 1, file("t.txt", text).string().c_str(), 0), 1);
    ASSERT_EQ(slm_set_att(out_.get(), 2, file("e.bin", {}).string().c_str(), 1), 1);
    ASSERT_EQ(slm_set_att(out_.get(), 3, file("m.bin", pattern(65536, 4)).string().c_str(), 1), 1);
    ASSERT_EQ(slm_set_buffer_as_att(out_.get(), 4, buffer.data(), 10, 0), 1);
    ASSERT_EQ(slm_set_att_with_target_fn(out_.get(), 5, file("s.bin", pattern(3, 6)).string().c_str(),
                                         target.c_str(), 1, 1, 1234, 0x89ABCDEFu, 0x01234567u, 1),
              1);
    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(out_.get(), &count), 1);
    EXPECT_EQ(count, 5);

    auto send = send_async(out_.get(), c.client);
    EXPECT_EQ(expect_parts(c.server, {{5, SLM_PART_TEXT_LAST}}), text);
    // An empty file is one empty last piece; a multiple of the piece size ends with one too.
    expect_parts(c.server, {{0, SLM_PART_BINARY_LAST},
                            {32768, SLM_PART_BINARY_MORE},
                            {32768, SLM_PART_BINARY_MORE},
                            {0, SLM_PART_BINARY_LAST}});
    EXPECT_EQ(expect_parts(c.server, {{10, SLM_PART_TEXT_LAST}}), buffer);
    // A named attachment's data follows the information the receiver needs for it.
    const RawPart info = read_part(c.server);
    EXPECT_EQ(info.indication, SLM_PART_ATT_INFO_LAST);
    EXPECT_EQ(info.data, signed_message([&](void *h) {
                  slm_set_string(h, SLM_ATT_NAME_ON_TARGET_VALUE, target.c_str());
                  slm_set_int(h, SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE, 1);
                  slm_set_int(h, SLM_ATT_UNIX_MOD_TIME_VALUE, 1234);
                  slm_set_int(h, SLM_ATT_NT_LSB_MOD_TIME_VALUE, static_cast<int32_t>(0x89ABCDEFu));
                  slm_set_int(h, SLM_ATT_NT_MSB_MOD_TIME_VALUE, 0x01234567);
              }));
    expect_parts(c.server, {{3, SLM_PART_BINARY_LAST}});
    // Five references (types 4, 6, 6, 4, 6 with numbers 0-4) and the end code.
    const Bytes body = expect_parts(c.server, {{4 + 5 * 7 + 2, SLM_PART_BODY_LAST}});
    ASSERT_EQ(body.size(), 4u + 5 * 7u + 2u);
    EXPECT_EQ(body[4 + 2], SLM_TYPE_TEXT_ATT);
    EXPECT_EQ(body[4 + 7 + 2], SLM_TYPE_BINARY_ATT);
    EXPECT_EQ(body[4 + 21 + 6], 3);  // the fourth reference carries number 3
    EXPECT_EQ(send.get(), 1);
}

// The pieces a progress routine was told of: (attachment, bytes).
using Pieces = std::vector<std::pair<int32_t, uint32_t>>;

void record_piece(void *data, int32_t attachment, uint32_t bytes) {
    static_cast<Pieces *>(data)->emplace_back(attachment, bytes);
}

TEST_F(SlmTransfer, PiecesFollowTheAttachmentBufferSizeButNeverExceedAPart) {
    Connection c;
    // The routine stays with the handle when it is emptied for each case.
    Pieces told;
    ASSERT_EQ(slm_set_progress_routine(out_.get(), record_piece, &told), 1);
    const struct {
        uint32_t buffer_size;
        size_t file_size;
        Parts parts;
    } cases[] = {
        {1000,
         2500,
         {{1000, SLM_PART_BINARY_MORE}, {1000, SLM_PART_BINARY_MORE}, {500, SLM_PART_BINARY_LAST}}},
        {1000, 2000, {{1000, SLM_PART_BINARY_MORE}, {1000, SLM_PART_BINARY_MORE}, {0, SLM_PART_BINARY_LAST}}},
        {100000,
         70000,
         {{32768, SLM_PART_BINARY_MORE}, {32768, SLM_PART_BINARY_MORE}, {4464, SLM_PART_BINARY_LAST}}},
    };
    for (const auto &k : cases) {
        SCOPED_TRACE(k.buffer_size);
        ASSERT_EQ(slm_init_handle(out_.get()), 1);
        ASSERT_EQ(slm_set_att_buffer_size(out_.get(), k.buffer_size), 1);
        const Bytes data = pattern(k.file_size, 5);
        ASSERT_EQ(slm_set_att(out_.get(), 1, file("p.bin", data).string().c_str(), 1), 1);
        told.clear();
        auto send = send_async(out_.get(), c.client);
        EXPECT_EQ(expect_parts(c.server, k.parts), data);
        EXPECT_EQ(read_part(c.server).indication, SLM_PART_BODY_LAST);
        EXPECT_EQ(send.get(), 1);
        Pieces wanted;
        for (const auto &part : k.parts) {
            if (part.first != 0) {
                wanted.emplace_back(0, part.first);
            }
        }
        EXPECT_EQ(told, wanted);
    }
    ASSERT_EQ(slm_set_progress_routine(out_.get(), nullptr, nullptr), 1);
}

// ---- Attachments received ---------------------------------------------------------------------

TEST_F(SlmTransfer, ReceivedAttachmentsGoToTemporaryFilesUnderTheSendersNumbers) {
    Connection c;
    const Bytes text = pattern(40000, 7);
    const Bytes buffer = pattern(32768, 8);
    ASSERT_EQ(slm_set_att(out_.get(), 1, file("a.txt", text).string().c_str(), 0), 1);
    ASSERT_EQ(slm_set_buffer_as_att(out_.get(), 2, buffer.data(), static_cast<uint32_t>(buffer.size()), 1),
              1);
    ASSERT_EQ(slm_set_att(out_.get(), 3, file("empty", {}).string().c_str(), 1), 1);
    EXPECT_EQ(transfer(c), 1);

    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(in_.get(), &count), 1);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(files_in(temp_), 3u);
    EXPECT_TRUE(fails_with(slm_get_att_crc(in_.get(), SLM_LAST_REFERENCE, nullptr, nullptr), ERR_MSG_NOATT));
    const Bytes wanted[] = {text, buffer, {}};
    for (uint16_t code = 1; code <= 3; ++code) {
        SCOPED_TRACE(code);
        const Received got = next_attachment(code);
        EXPECT_EQ(got.mode, code == 1 ? 0 : 1);
        EXPECT_EQ(got.status, 1);
        EXPECT_EQ(got.why_not, "");
        const fs::path path(got.name);
        EXPECT_EQ(fs::canonical(path.parent_path()), fs::canonical(temp_));
        EXPECT_EQ(path.filename().string().rfind("slm", 0), 0u) << got.name;
        EXPECT_EQ(read_file(path), wanted[code - 1]);
        // Size and CRC as they arrived, in table order.
        uint64_t size = 0;
        uint32_t crc = 1;
        const Bytes &bytes = wanted[code - 1];
        ASSERT_EQ(slm_get_att_crc(in_.get(), code - 1, &size, &crc), 1);
        EXPECT_EQ(size, bytes.size());
        updcrc(nullptr, 0);
        EXPECT_EQ(crc, bytes.empty() ? 0u : updcrc(bytes.data(), static_cast<uint32_t>(bytes.size())));
        uint32_t by_reference = 1;
        ASSERT_EQ(slm_get_att_crc(in_.get(), SLM_LAST_REFERENCE, nullptr, &by_reference), 1);
        EXPECT_EQ(by_reference, crc);
    }
    EXPECT_TRUE(fails_with(slm_get_att_crc(in_.get(), 3, nullptr, nullptr), ERR_MSG_NOATT));
    EXPECT_TRUE(fails_with(slm_get_att_crc(in_.get(), -2, nullptr, nullptr), ERR_MSG_NOATT));
}

TEST_F(SlmTransfer, NamesOnTheTargetFollowTheReplaceAndNewerOnTargetRules) {
    Connection c;
    const int64_t target_time = 1600000000;
    const Bytes data = pattern(5000, 9);
    const Bytes old = {'o', 'l', 'd'};
    const std::string source = file("src.bin", data).string();
    const struct {
        const char *name;
        bool exists;
        int32_t replace;
        int64_t source_time;  // 0: no times sent
        bool written;
    } cases[] = {
        {"fresh", false, 0, 0, true},
        {"kept", true, 0, 0, false},
        {"replaced", true, 1, 0, true},
        {"older_source", true, 1, target_time - 100, false},
        {"equal_times", true, 1, target_time, true},  // equal is not newer
        {"newer_source", true, 1, target_time + 100, true},
    };
    uint16_t code = 1;
    std::vector<bool> written;
    for (const auto &k : cases) {
        const fs::path target = base_ / k.name;
        if (k.exists) {
            write_file(target, old);
            set_write_time(target, target_time);
        }
        const uint64_t nt = static_cast<uint64_t>(k.source_time + 11644473600LL) * 10000000u;
        ASSERT_EQ(
            slm_set_att_with_target_fn(out_.get(), code++, source.c_str(), target.string().c_str(), k.replace,
                                       k.source_time != 0, static_cast<int32_t>(k.source_time),
                                       static_cast<uint32_t>(nt), static_cast<uint32_t>(nt >> 32), 1),
            1);
        written.push_back(k.written);
    }
    const std::vector<Received> got = transfer_expecting(c, written);
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(got[i].name, (base_ / cases[i].name).string());
        EXPECT_EQ(read_file(base_ / cases[i].name), cases[i].written ? data : old) << cases[i].name;
    }
    EXPECT_NE(got[3].why_not.find("newer"), std::string::npos) << got[3].why_not;
    EXPECT_EQ(files_in(temp_), 0u) << "names on the target need no temporary file";

    // Every attachment written: full success.
    ASSERT_EQ(slm_init_handle(out_.get()), 1);
    fs::remove(base_ / "fresh");
    ASSERT_EQ(slm_set_att_with_target_fn(out_.get(), 1, source.c_str(), (base_ / "fresh").string().c_str(), 0,
                                         0, 0, 0, 0, 1),
              1);
    transfer_expecting(c, {true});
}

TEST_F(SlmTransfer, TargetRootRefusesNamesLeadingOutsideItAndGoesOn) {
    Connection c;
    const fs::path root = base_ / "root";
    fs::create_directories(root / "sub");
    ASSERT_EQ(slm_set_target_root(in_.get(), root.string().c_str()), 1);
    const Bytes data = pattern(64, 11);
    const std::string source = file("src.bin", data).string();
    const fs::path outside = base_ / "outside.bin";
    struct Case {
        std::string name;
        bool written;
    };
    std::vector<Case> cases = {
        {"inside.bin", true},
        {(fs::path("sub") / "deeper.bin").string(), true},
        {outside.string(), false},  // absolute
        {(fs::path("..") / "outside.bin").string(), false},
        {(fs::path("sub") / ".." / ".." / "outside.bin").string(), false},
    };
#ifndef _WIN32
    // Links leading out of the root (a directory, and a file as the last element), and one staying inside.
    fs::create_directories(base_ / "elsewhere");
    fs::create_directory_symlink(base_ / "elsewhere", root / "escape");
    write_file(base_ / "victim.bin", {'v'});
    fs::create_symlink(base_ / "victim.bin", root / "victim.bin");
    fs::create_directory_symlink(root / "sub", root / "inner");
    cases.push_back({"escape/evil.bin", false});
    cases.push_back({"victim.bin", false});
    cases.push_back({"inner/fine.bin", true});
#endif
    uint16_t code = 1;
    std::vector<bool> written;
    for (const Case &k : cases) {
        ASSERT_EQ(
            slm_set_att_with_target_fn(out_.get(), code++, source.c_str(), k.name.c_str(), 1, 0, 0, 0, 0, 1),
            1);
        written.push_back(k.written);
    }
    const std::vector<Received> got = transfer_expecting(c, written);
    for (size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        if (cases[i].written) {
            EXPECT_EQ(read_file(root / cases[i].name), data);
        } else {
            EXPECT_NE(got[i].why_not.find("is outside the target root"), std::string::npos) << got[i].why_not;
        }
    }
    EXPECT_FALSE(fs::exists(outside));
#ifndef _WIN32
    EXPECT_FALSE(fs::exists(base_ / "elsewhere" / "evil.bin"));
    EXPECT_EQ(read_file(base_ / "victim.bin"), Bytes{'v'});
    EXPECT_EQ(read_file(root / "sub" / "fine.bin"), data);
#endif
    EXPECT_EQ(files_in(temp_), 0u);
}

// ---- Failed sends and restarts -------------------------------------------------------------

TEST_F(SlmTransfer, AFailedSendSendsARestartOnlyToAPeerOfTheSameVersionOrLater) {
    Connection c;
    // A missing part then fails the read instead of hanging it; a passing run never waits on this.
    ASSERT_EQ(sl_net_set_recv_timeout(c.server, 30), 1);
    const Bytes buffer = pattern(20, 12);
    const std::string missing = (files_ / "missing.bin").string();
    for (const double remote : {SLM_LOCAL_VERSION, 1.0}) {
        SCOPED_TRACE(remote);
        ASSERT_EQ(slm_init_handle(out_.get()), 1);
        ASSERT_EQ(slm_set_remote_version(out_.get(), remote), 1);
        ASSERT_EQ(slm_set_buffer_as_att(out_.get(), 1, buffer.data(), 20, 1), 1);
        ASSERT_EQ(slm_set_att(out_.get(), 2, missing.c_str(), 1), 1);
        std::async(std::launch::async,
                   [&] {  // the stack is the sending thread's
                       const int result = slm_send(out_.get(), c.client, 1);
                       EXPECT_TRUE(stack_has(ERR_MSG_ATTOPEN)) << err_get_error_msg();
                       EXPECT_NE(
                           std::string(err_get_error_msg()).find("slm_send_att - file does not exist !!!!"),
                           std::string::npos);
                       EXPECT_TRUE(fails_with(result, ERR_MSG_SEND));
                   })
            .get();

        // Then a good message: after the first attachment comes the restart
        // part or, for an older peer, straight the next message.
        Message next;
        auto good = send_async(next.get(), c.client);
        expect_parts(c.server, {{20, SLM_PART_BINARY_LAST}});
        if (remote == SLM_LOCAL_VERSION) {
            expect_parts(c.server, {{0, SLM_PART_RESTART}});
        }
        expect_parts(c.server, {{6, SLM_PART_BODY_LAST}});
        EXPECT_EQ(good.get(), 1);
    }
}

TEST_F(SlmTransfer, TheReceiverDropsARestartedMessageAndReceivesTheNextOne) {
    Connection c;
    const Bytes dropped = pattern(3000, 13);
    const Bytes kept = pattern(70000, 14);
    ASSERT_EQ(slm_set_remote_version(out_.get(), SLM_LOCAL_VERSION), 1);
    ASSERT_EQ(slm_set_buffer_as_att(out_.get(), 1, dropped.data(), static_cast<uint32_t>(dropped.size()), 1),
              1);
    ASSERT_EQ(slm_set_att(out_.get(), 2, (files_ / "missing.bin").string().c_str(), 1), 1);
    Message good;
    ASSERT_EQ(slm_set_buffer_as_att(good.get(), 7, kept.data(), static_cast<uint32_t>(kept.size()), 1), 1);
    ASSERT_EQ(slm_set_int(good.get(), 8, 77), 1);

    // One thread sends both, in order: the receiver must pass the restart.
    int results[2] = {-1, -1};
    std::thread sender([&] {
        results[0] = slm_send(out_.get(), c.client, 1);
        results[1] = slm_send(good.get(), c.client, 1);
    });
    int32_t full = -1;
    EXPECT_EQ(slm_recv_with_success_indication(in_.get(), c.server, &full), 1) << err_get_error_msg();
    sender.join();
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 1);
    EXPECT_EQ(full, 1);

    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(in_.get(), &count), 1);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(read_file(next_attachment(7).name), kept);
    int32_t value = 0;
    EXPECT_EQ(slm_get_int_by_code(in_.get(), 8, &value), 1);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(files_in(temp_), 1u) << "the dropped message's file is gone";
}

// ---- What a hostile peer sends -------------------------------------------------------------

TEST_F(SlmTransfer, WhatAHostilePeerSendsIsRefusedWithoutLeavingFiles) {
    const fs::path named = base_ / "named.bin";
    const Bytes data = pattern(100, 15);
    const Bytes info = info_bytes(named.string(), 1);
    Bytes bad_crc = info;
    bad_crc[0] ^= 0x01;
    Bytes bad_body = small_body();
    bad_body[0] ^= 0x01;
    const Bytes no_end = signed_message(
        [&](void *h) { slm_set_string(h, SLM_ATT_NAME_ON_TARGET_VALUE, named.string().c_str()); }, false);
    const Bytes no_name =
        signed_message([](void *h) { slm_set_int(h, SLM_ATT_REPLACE_FILE_ON_TARGET_VALUE, 1); });
    const Bytes big(32768, 0);
    const auto part = raw_part;
    const auto header = [](uint16_t first, uint32_t length, uint16_t third, uint16_t indication) {
        return std::vector<Bytes>{part_header(first, length, third, indication)};
    };
    // Lengths beyond a part are refused from the header alone: nothing waits for or allocates them.
    const struct {
        std::vector<Bytes> parts;
        uint32_t code;
        const char *text = "";
        bool silent = false;  // the peer stays connected until the receive times out
    } cases[] = {
        {header(7, 0, SLM_LAST_MSG_CODE, 0), ERR_MSG_BADHEAD, "got code <7> instead <SLM_MSG_SIZE_CODE>"},
        {header(SLM_MSG_SIZE_CODE, 0, 3, 0), ERR_MSG_BADHEAD, "got code <3> instead <SLM_LAST_MSG_CODE>"},
        {header(SLM_MSG_SIZE_CODE, 0, SLM_LAST_MSG_CODE, 9), ERR_MSG_UNKTYP, "unknown message type (9)"},
        {header(SLM_MSG_SIZE_CODE, 32769, SLM_LAST_MSG_CODE, 0), ERR_MSG_TOOBIG, "32768"},
        {header(SLM_MSG_SIZE_CODE, 0xFFFFFFF0u, SLM_LAST_MSG_CODE, 4), ERR_MSG_TOOBIG, "32768"},
        // Parts out of their order.
        {{part(SLM_PART_TEXT_MORE, data), part(SLM_PART_BINARY_LAST, data)}, ERR_MSG_BADMSG},
        {{part(SLM_PART_BINARY_LAST, data), part(SLM_PART_BINARY_MORE, data), part(SLM_PART_TEXT_LAST, data)},
         ERR_MSG_BADMSG},
        {{part(SLM_PART_BINARY_MORE, data), part(SLM_PART_BODY_LAST, small_body())}, ERR_MSG_BADMSG},
        {{part(SLM_PART_ATT_INFO_LAST, info), part(SLM_PART_BODY_LAST, small_body())}, ERR_MSG_BADMSG},
        {{part(SLM_PART_ATT_INFO_LAST, info), part(SLM_PART_ATT_INFO_LAST, info)}, ERR_MSG_BADMSG},
        {{part(SLM_PART_ATT_INFO_MORE, info), part(SLM_PART_BINARY_LAST, data)}, ERR_MSG_BADMSG},
        {{part(SLM_PART_BODY_MORE, small_body()), part(SLM_PART_BINARY_LAST, data)}, ERR_MSG_BADMSG},
        // Malformed attachment information and bodies.
        {{part(SLM_PART_ATT_INFO_LAST, bad_crc)}, ERR_MSG_BADMSG, "-MSG-E-CRC"},
        {{part(SLM_PART_ATT_INFO_LAST, no_end)}, ERR_MSG_BADMSG},
        {{part(SLM_PART_ATT_INFO_LAST, no_name)}, ERR_MSG_BADMSG},
        {{part(SLM_PART_ATT_INFO_MORE, big), part(SLM_PART_ATT_INFO_MORE, big),
          part(SLM_PART_ATT_INFO_LAST, big)},
         ERR_MSG_TOOBIG},
        {{part(SLM_PART_BINARY_LAST, data), part(SLM_PART_BODY_LAST, bad_body)}, ERR_MSG_CRC},
        {{part(SLM_PART_BODY_LAST, {1, 2, 3})}, ERR_MSG_BADMSG},
        // The peer stops in the middle of a temporary or a named file.
        {{part(SLM_PART_BINARY_LAST, data), part(SLM_PART_TEXT_MORE, data)}, ERR_MSG_RECV},
        {{part(SLM_PART_ATT_INFO_LAST, info), part(SLM_PART_BINARY_MORE, data)}, ERR_MSG_RECV},
        {{part(SLM_PART_BINARY_MORE, data)}, ERR_MSG_RECV, "", true},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE("case " + std::to_string(i));
        const auto &k = cases[i];
        Connection c;
        ASSERT_EQ(sl_net_set_recv_timeout(c.server, k.silent ? 1 : 0), 1);
        // The peer sends on its own thread (the parts may exceed the socket buffers) and
        // closes: a receiver waiting for more fails with RECV instead of the refusal.
        std::thread peer([&] {
            for (const Bytes &p : k.parts) {
                if (sl_net_send(c.client, p.data(), static_cast<int32_t>(p.size()), nullptr) != 1) {
                    break;  // the receiver gave up first
                }
            }
            if (!k.silent) {
                free_session(c.client);
            }
        });
        EXPECT_EQ(slm_recv(in_.get(), c.server), 0);
        EXPECT_EQ(err_get_error_code(0), k.code) << err_get_error_msg();
        EXPECT_NE(std::string(err_get_error_msg()).find(k.text), std::string::npos) << err_get_error_msg();
        err_clear_error_stack();
        free_session(c.server);  // ends a send still waiting for the receiver
        peer.join();
        EXPECT_EQ(files_in(temp_), 0u);
        EXPECT_FALSE(fs::exists(named));
    }
}

// ---- Arguments -----------------------------------------------------------------------------

TEST_F(SlmTransfer, ArgumentsAreChecked) {
    Connection c;
    vq::test::expect_refused({
        {"slm_send", "handle", [&] { return slm_send(nullptr, c.client, 1) == 0; }},
        {"slm_send", "session", [&] { return slm_send(out_.get(), nullptr, 1) == 0; }},
        {"slm_recv", "session", [&] { return slm_recv(in_.get(), nullptr) == 0; }},
        {"slm_recv_with_success_indication", "full_success",
         [&] { return slm_recv_with_success_indication(in_.get(), c.server, nullptr) == 0; }},
        {"slm_set_att", "file_name", [&] { return slm_set_att(out_.get(), 1, nullptr, 0) == 0; }},
        {"slm_set_att_with_target_fn", "name_on_target",
         [&] { return slm_set_att_with_target_fn(out_.get(), 1, "x", "", 0, 0, 0, 0, 0, 0) == 0; }},
        {"slm_set_buffer_as_att", "buffer",
         [&] { return slm_set_buffer_as_att(out_.get(), 1, nullptr, 5, 0) == 0; }},
    });
    int32_t count = -1;
    EXPECT_EQ(slm_get_number_of_attachments(out_.get(), &count), 1);
    EXPECT_EQ(count, 0) << "the refused calls added nothing";
}

TEST_F(SlmTransfer, AMessageHoldsAtMostTheLimitOfAttachments) {
    const unsigned char byte = 1;
    for (int i = 0; i < SLM_MAX_ATTACHMENTS; ++i) {
        ASSERT_EQ(slm_set_buffer_as_att(out_.get(), 1, &byte, 1, 1), 1) << i;
    }
    const Bytes before = out_.bytes();
    EXPECT_TRUE(fails_with(slm_set_buffer_as_att(out_.get(), 1, &byte, 1, 1), ERR_MSG_TOOMANY));
    EXPECT_EQ(out_.bytes(), before) << "no reference written for it";
    int32_t count = 0;
    EXPECT_EQ(slm_get_number_of_attachments(out_.get(), &count), 1);
    EXPECT_EQ(count, SLM_MAX_ATTACHMENTS);
}

}  // namespace
