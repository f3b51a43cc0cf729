// Whole files as bytes, for tests and fuzz targets that compare what the
// library left on the disk.
#pragma once

#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

namespace vq::test {

// The bytes of the file at path; empty when it cannot be read.
inline std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Replaces the file at path by exactly bytes. False when that failed.
inline bool write_file(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    return static_cast<bool>(out.flush());
}

// Whether something exists at path.
inline bool file_exists(const std::string &path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

}  // namespace vq::test
