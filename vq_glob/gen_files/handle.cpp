// File handles: the per-thread table of files.
#include "internal/frame.h"

namespace vq::gf {
namespace {
struct FilesRecord {};
}  // namespace
}  // namespace vq::gf

namespace vq::frame {
constinit const Module kFilesModule =
    ModuleFrame<gf::FilesRecord, kSlotFiles, OnDemand::without_block>::module("gf");
}  // namespace vq::frame
