// Test helper (POSIX): a file whose full path is longer than the system's
// PATH_MAX, built by going down through open directories.
#pragma once

#ifndef _WIN32
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace vq_test {

// Builds root/<levels>/<file> whose full path is exactly length bytes and
// returns that path. Levels are 200-byte names; the file holds "deep".
inline std::string make_deep_file(const std::string &root, size_t length, const std::string &file) {
    std::string path = root;
    int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
    EXPECT_GE(fd, 0);
    while (path.size() + 1 + 200 + 1 + file.size() < length) {
        std::string name(200, 'd');
        name[0] = static_cast<char>('a' + path.size() % 26);
        EXPECT_EQ(::mkdirat(fd, name.c_str(), 0755), 0);
        int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(fd);
        fd = next;
        path += "/" + name;
    }
    std::string last(length - path.size() - 2 - file.size(), 'L');
    EXPECT_EQ(::mkdirat(fd, last.c_str(), 0755), 0);
    int dir = ::openat(fd, last.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    int out = ::openat(dir, file.c_str(), O_WRONLY | O_CREAT, 0644);
    EXPECT_EQ(::write(out, "deep", 4), 4);
    ::close(out);
    ::close(dir);
    path += "/" + last + "/" + file;
    EXPECT_EQ(path.size(), length);
    return path;
}

}  // namespace vq_test
#endif
