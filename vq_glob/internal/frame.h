// The library frame as the modules see it: slot numbers of the per-thread
// block, the shape of a module's four frame functions, and the accessor every
// module uses to reach its own per-thread record.
#pragma once

#include <cstdint>
#include <new>

#include "platform/platform.h"

namespace vq::frame {

inline constexpr int kBlockSlots = 49;

// Each module owns exactly one fixed slot; the numbering is stable.
enum Slot : int {
    kSlotCli = 0,
    kSlotConfWriter = 4,
    kSlotCrc = 6,
    kSlotDebug = 9,
    kSlotDirList = 10,
    kSlotEnv = 12,
    kSlotErr = 13,
    kSlotTime = 14,
    kSlotFiles = 15,
    kSlotMessages = 16,
    kSlotProcesses = 17,
    kSlotHex = 18,
    kSlotMd5 = 21,
    kSlotNtEnv = 24,
    kSlotRegistry = 27,
    kSlotConfig = 32,
    kSlotSemaphores = 37,
    kSlotStrings = 41,
    kSlotSysMsg = 42,
    kSlotTimeFrames = 43,
    kSlotCompress = 47,
    kSlotMulticast = 48,
};

// A module's frame functions. process_init stores the module's copy of the
// thread-local index; thread_init allocates the module's record into its
// slot (0 for a null slot address or no memory); thread_clean releases it,
// storing null, and succeeds for an empty slot too.
struct Module {
    const char *name;
    int slot;
    int (*process_init)(uint32_t index);
    int (*process_clean)();
    int (*thread_init)(void **slot);
    int (*thread_clean)(void **slot);
};

// The calling thread's block reached through a module's index copy. A thread
// that has no block yet (it predates the library, or runs on POSIX where no
// thread-attach exists) gets one when create_block is set. Null when the
// index is invalid or the block cannot be made.
void **thread_block(uint32_t index, bool create_block);

// How an accessor treats an empty slot.
enum class OnDemand {
    no,            // return null
    yes,           // run the module's thread-init on the slot
    without_block  // as yes, but never create a missing block (the files module)
};

// The frame of a module whose per-thread state is one C++ object: Record is
// value-initialised by thread-init, and its destructor is the module's own
// clean-up, run by thread-clean.
template <typename Record, Slot kSlot, OnDemand kOnDemand = OnDemand::no>
class ModuleFrame {
public:
    static int process_init(uint32_t index) {
        index_ = index;
        return 1;
    }

    static int process_clean() {
        index_ = kPlatTlsInvalid;
        return 1;
    }

    static int thread_init(void **slot) {
        if (slot == nullptr) {
            return 0;
        }
        auto *record = new (std::nothrow) Record();
        if (record == nullptr) {
            return 0;
        }
        *slot = record;
        return 1;
    }

    static int thread_clean(void **slot) {
        if (slot != nullptr) {
            delete static_cast<Record *>(*slot);
            *slot = nullptr;
        }
        return 1;
    }

    // The module's record for the calling thread, or null.
    static Record *get() {
        void **block = thread_block(index_, kOnDemand != OnDemand::without_block);
        if (block == nullptr) {
            return nullptr;
        }
        void **slot = &block[kSlot];
        if (*slot == nullptr && kOnDemand != OnDemand::no) {
            thread_init(slot);
        }
        return static_cast<Record *>(*slot);
    }

    // As get(), but a thread without a block gets one whatever the module's
    // rule: for the point where a thread starts using a module that never
    // creates blocks itself (POSIX threads have no thread-attach).
    static Record *get_creating_block() {
        thread_block(index_, true);
        return get();
    }

    // Releases the calling thread's record, if it has one, as thread-clean does.
    static void release_current() {
        void **block = thread_block(index_, false);
        if (block != nullptr) {
            thread_clean(&block[kSlot]);
        }
    }

    static constexpr Module module(const char *name) {
        return Module{name, kSlot, process_init, process_clean, thread_init, thread_clean};
    }

private:
    static inline uint32_t index_ = kPlatTlsInvalid;
};

// Every module's frame, defined in the module's own source.
extern const Module kCliModule;
extern const Module kCrcModule;
extern const Module kDebugModule;
extern const Module kDirListModule;
extern const Module kEnvModule;
extern const Module kErrModule;
extern const Module kTimeModule;
extern const Module kFilesModule;
extern const Module kMessagesModule;
extern const Module kCompressModule;
extern const Module kConfigModule;
extern const Module kSemaphoresModule;
extern const Module kMulticastModule;
extern const Module kProcessesModule;
extern const Module kHexModule;
extern const Module kMd5Module;
extern const Module kStringsModule;
extern const Module kSysMsgModule;
extern const Module kTimeFramesModule;
extern const Module kRegistryModule;
extern const Module kNtEnvModule;
extern const Module kConfWriterModule;

}  // namespace vq::frame
