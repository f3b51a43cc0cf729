// Process handles: the per-thread table of process descriptions.
#include "internal/frame.h"

namespace vq::api {
namespace {
struct ApiRecord {};
}  // namespace
}  // namespace vq::api

namespace vq::frame {
constinit const Module kProcessesModule = ModuleFrame<api::ApiRecord, kSlotProcesses>::module("api");
}  // namespace vq::frame
