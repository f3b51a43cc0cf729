// CRC-32 with a running register per thread.
#include "internal/frame.h"

namespace vq::crc {
namespace {
struct CrcRecord {};
}  // namespace
}  // namespace vq::crc

namespace vq::frame {
constinit const Module kCrcModule = ModuleFrame<crc::CrcRecord, kSlotCrc>::module("crc");
}  // namespace vq::frame
