// Frames of the modules whose functions are still to come. Each has its slot
// and its four frame functions from the start, so that the module order of
// every start-up and clean-up loop is complete; its record is empty until the
// module itself arrives and moves its frame into its own source.
#include "internal/frame.h"

namespace vq::frame {
namespace {

template <int kTag>
struct EmptyRecord {};

template <Slot kSlot, OnDemand kOnDemand = OnDemand::no>
constexpr Module empty_module(const char *name) {
    return ModuleFrame<EmptyRecord<kSlot>, kSlot, kOnDemand>::module(name);
}

}  // namespace

constinit const Module kDirListModule = empty_module<kSlotDirList>("dir");
constinit const Module kCompressModule = empty_module<kSlotCompress>("compress");
constinit const Module kSemaphoresModule = empty_module<kSlotSemaphores>("sem");
constinit const Module kMulticastModule = empty_module<kSlotMulticast>("vq_mc");
constinit const Module kMd5Module = empty_module<kSlotMd5>("md5");
constinit const Module kNtEnvModule = empty_module<kSlotNtEnv>("ntenv");

}  // namespace vq::frame
