// Time stamps and their conversions.
#include "internal/frame.h"

namespace vq::timeconv {
namespace {
struct TimeRecord {};
}  // namespace
}  // namespace vq::timeconv

namespace vq::frame {
constinit const Module kTimeModule =
    ModuleFrame<timeconv::TimeRecord, kSlotTime, OnDemand::yes>::module("conv");
}  // namespace vq::frame
