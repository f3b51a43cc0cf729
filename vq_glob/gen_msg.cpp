// General messages: the thread's message under construction and the one taken apart.
#include "internal/frame.h"

namespace vq::gm {
namespace {
struct MessageRecord {};
}  // namespace
}  // namespace vq::gm

namespace vq::frame {
constinit const Module kMessagesModule = ModuleFrame<gm::MessageRecord, kSlotMessages>::module("gm");
}  // namespace vq::frame
