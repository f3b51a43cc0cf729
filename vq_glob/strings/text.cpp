// String routines, the tokenizer and the time-frame helpers.
#include "internal/frame.h"

namespace vq::strings {
namespace {
struct StringsRecord {};
struct TimeFrameRecord {};
}  // namespace
}  // namespace vq::strings

namespace vq::frame {
constinit const Module kStringsModule = ModuleFrame<strings::StringsRecord, kSlotStrings>::module("str");
constinit const Module kTimeFramesModule =
    ModuleFrame<strings::TimeFrameRecord, kSlotTimeFrames>::module("tframe");
}  // namespace vq::frame
