// Writing a configuration onto a full device: on a small tmpfs mounted for
// the test and filled to the last block, a write that needs more room must
// fail with the cause on the error stack and leave the old file byte for
// byte, in place and through the temporary file alike; a write that fits in
// the file's own blocks still succeeds.
//
// Linux as root only: the test mounts its own file system.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "vq_glob/conf.h"
#include "vq_glob/err.h"

#if defined(__linux__)
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <unistd.h>
#endif

namespace {

#if !defined(__linux__)

TEST(ConfFullDisk, LinuxRootFailedWritesLeaveTheOldFileWhole) {
    GTEST_SKIP() << "the test mounts a small tmpfs, which needs Linux";
}

#else

std::string read_all(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string make_text(int sections) {
    std::string text;
    for (int s = 0; s < sections; ++s) {
        text += "[section " + std::to_string(s) + "]\n";
        for (int f = 0; f < 8; ++f) {
            text += "field_" + std::to_string(f) + "=value " + std::to_string(f) + " of section " +
                    std::to_string(s) + " padded to a longer line\n";
        }
    }
    return text;
}

class ConfFullDisk : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        if (::geteuid() != 0) {
            GTEST_SKIP() << "mounting the small file system this test fills needs root";
        }
        std::string pattern = ::testing::TempDir() + "vq_conf_full_XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            GTEST_SKIP() << "no directory to mount on: " << std::strerror(errno);
        }
        dir_ = pattern;
        if (::mount("tmpfs", dir_.c_str(), "tmpfs", 0, "size=64k") != 0) {
            GTEST_SKIP() << "cannot mount a tmpfs on " << dir_ << ": " << std::strerror(errno);
        }
        mounted_ = true;
        path_ = dir_ + "/settings.conf";
    }
    void TearDown() override {
        for (void *&h : handles_) {
            conf_free_handle(&h);
        }
        if (mounted_ && ::umount(dir_.c_str()) != 0) {
            ADD_FAILURE() << "umount " << dir_ << ": " << std::strerror(errno);
            ::umount2(dir_.c_str(), MNT_DETACH);
        }
        if (!dir_.empty()) {
            ::rmdir(dir_.c_str());
        }
    }

    void *handle_of(const std::string &text) {
        void *h = nullptr;
        EXPECT_EQ(conf_allocate_handle(&h), 1);
        handles_.push_back(h);
        EXPECT_EQ(conf_read_buffer_to_handle(h, text.c_str()), 1) << err_get_error_msg();
        return h;
    }

    // Takes every free block of the file system into one filler file.
    void fill() {
        filler_ = dir_ + "/filler";
        int fd = ::open(filler_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ASSERT_GE(fd, 0) << std::strerror(errno);
        static const char block[512] = {1};
        ssize_t done = 0;
        while ((done = ::write(fd, block, sizeof block)) > 0) {
        }
        int error = errno;
        ::close(fd);
        ASSERT_EQ(error, ENOSPC);
    }

    void free_space() { ASSERT_EQ(::unlink(filler_.c_str()), 0); }

    // The write failed with the device's reason under the module's own code.
    static void expect_no_space_reported() {
        EXPECT_EQ(err_get_error_code(0), ERR_CNF_FILE_8204) << err_get_error_msg();
        EXPECT_NE(std::string(err_get_error_msg()).find(std::strerror(ENOSPC)), std::string::npos)
            << err_get_error_msg();
    }

    std::string dir_;
    std::string path_;
    std::string filler_;
    bool mounted_ = false;
    std::vector<void *> handles_;
};

TEST_F(ConfFullDisk, LinuxRootFailedWritesLeaveTheOldFileWhole) {
    const std::string old_text = make_text(4);
    const std::string big_text = make_text(60);  // several blocks more
    ASSERT_LT(old_text.size(), 4096u);
    ASSERT_GT(big_text.size(), 4 * 4096u);
    void *old_h = handle_of(old_text);
    void *big_h = handle_of(big_text);
    ASSERT_EQ(conf_write(old_h, path_.c_str()), 1) << err_get_error_msg();
    const std::string old_bytes = read_all(path_);
    ASSERT_NO_FATAL_FAILURE(fill());

    // In place: the room is reserved first, and cannot be had.
    EXPECT_EQ(conf_write(big_h, path_.c_str()), 0);
    expect_no_space_reported();
    EXPECT_EQ(read_all(path_), old_bytes);

    // Through the temporary file: the copy cannot be completed, and goes.
    ASSERT_EQ(conf_enable_write_with_temp(big_h), 1);
    err_clear_error_stack();
    EXPECT_EQ(conf_write(big_h, path_.c_str()), 0);
    expect_no_space_reported();
    EXPECT_EQ(read_all(path_), old_bytes);
    EXPECT_EQ(::access((path_ + ".temp").c_str(), F_OK), -1);

    // A file this write would have created is not left behind empty.
    std::string fresh = dir_ + "/fresh.conf";
    ASSERT_EQ(conf_disable_write_with_temp(big_h), 1);
    EXPECT_EQ(conf_write(big_h, fresh.c_str()), 0);
    EXPECT_EQ(::access(fresh.c_str(), F_OK), -1);

    // A shorter text fits in the file's own blocks, full device or not.
    std::string short_text = make_text(2);
    void *short_h = handle_of(short_text);
    ASSERT_EQ(conf_write(short_h, path_.c_str()), 1) << err_get_error_msg();
    EXPECT_EQ(read_all(path_), short_text);

    // With room again, the long text goes in place and reads back.
    ASSERT_NO_FATAL_FAILURE(free_space());
    ASSERT_EQ(conf_write(big_h, path_.c_str()), 1) << err_get_error_msg();
    EXPECT_EQ(read_all(path_), big_text);
    void *back = handle_of("");
    ASSERT_EQ(conf_read_file_to_handle(back, path_.c_str()), 1) << err_get_error_msg();
    char *out = nullptr;
    ASSERT_EQ(conf_write_buffer(back, &out), 1);
    EXPECT_EQ(std::string(out), big_text);
    conf_free_buffer(out);
}

#endif  // __linux__

}  // namespace
