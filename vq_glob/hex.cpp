// Hexadecimal text of byte runs, in a per-thread buffer.
#include "internal/frame.h"

namespace vq::hex {
namespace {
struct HexRecord {};
}  // namespace
}  // namespace vq::hex

namespace vq::frame {
constinit const Module kHexModule = ModuleFrame<hex::HexRecord, kSlotHex>::module("hex");
}  // namespace vq::frame
