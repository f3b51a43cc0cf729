// The library frame: process start-up and shut-down of every module in a
// fixed order, and the per-thread block whose slots the modules own.
#include "vq_glob/glob.h"

#include <cstdlib>
#include <iterator>

#include "internal/frame.h"
#include "platform/platform.h"

namespace vq::frame {
namespace {

// The one process-wide index; allocated once and never released.
uint32_t g_index = kPlatTlsInvalid;

// Process start-up order, also the process shut-down order (not reversed).
// The OpenSSL load sits between the registry and the NT domain environment.
const Module *const kProcessOrder[] = {
    &kCliModule,       &kCrcModule,     &kDebugModule,       &kDirListModule, &kEnvModule,
    &kErrModule,       &kTimeModule,    &kFilesModule,       &kMessagesModule, &kCompressModule,
    &kConfigModule,    &kSemaphoresModule, &kMulticastModule, &kProcessesModule, &kHexModule,
    &kMd5Module,       &kStringsModule, &kSysMsgModule,      &kTimeFramesModule, &kRegistryModule,
};
const Module *const kProcessOrderLate[] = {&kNtEnvModule, &kConfWriterModule};

// Thread start-up: tracing first so that it works while the others start.
const Module *const kThreadInitOrder[] = {
    &kDebugModule,     &kCliModule,      &kCrcModule,        &kDirListModule,  &kEnvModule,
    &kErrModule,       &kTimeModule,     &kFilesModule,      &kMessagesModule, &kCompressModule,
    &kConfigModule,    &kSemaphoresModule, &kProcessesModule, &kHexModule,     &kMd5Module,
    &kStringsModule,   &kSysMsgModule,   &kTimeFramesModule, &kRegistryModule, &kMulticastModule,
    &kNtEnvModule,     &kConfWriterModule,
};

// Thread clean-up: as start-up but with tracing last, so that it stays
// usable while the others clean up.
const Module *const kThreadCleanOrder[] = {
    &kCliModule,      &kCrcModule,      &kDirListModule,  &kEnvModule,        &kErrModule,
    &kTimeModule,     &kFilesModule,    &kMessagesModule, &kCompressModule,   &kConfigModule,
    &kSemaphoresModule, &kProcessesModule, &kHexModule,   &kMd5Module,        &kStringsModule,
    &kSysMsgModule,   &kTimeFramesModule, &kRegistryModule, &kMulticastModule, &kNtEnvModule,
    &kConfWriterModule, &kDebugModule,
};

static_assert(std::size(kThreadInitOrder) == std::size(kThreadCleanOrder));
static_assert(std::size(kProcessOrder) + std::size(kProcessOrderLate) == std::size(kThreadInitOrder));

// The secure layer's libraries are loaded by the module that uses them; a
// failure there never stops the library from starting.
void load_secure_layer() {}

}  // namespace

void **thread_block(uint32_t index, bool create_block) {
    if (index == kPlatTlsInvalid) {
        return nullptr;
    }
    void *block = plat_tls_get(index);
    if (block == nullptr && create_block) {
        init_glob_thread();
        block = plat_tls_get(index);
    }
    return static_cast<void **>(block);
}

}  // namespace vq::frame

using namespace vq::frame;

extern "C" {

VQ_API int init_glob(void) {
    if (g_index == kPlatTlsInvalid) {
        g_index = plat_tls_alloc(true);
        if (g_index == kPlatTlsInvalid) {
            return 0;
        }
    }
    for (const Module *module : kProcessOrder) {
        if (module->process_init(g_index) == 0) {
            return 0;
        }
    }
    load_secure_layer();
    int result = 0;
    for (const Module *module : kProcessOrderLate) {
        result = module->process_init(g_index);
    }
    return result > 0 ? 1 : 0;
}

VQ_API int clean_glob(void) {
    for (const Module *module : kProcessOrder) {
        module->process_clean();
    }
    for (const Module *module : kProcessOrderLate) {
        module->process_clean();
    }
    return 1;
}

VQ_API int init_glob_thread(void) {
    auto *block = static_cast<void **>(std::calloc(kBlockSlots, sizeof(void *)));
    if (block == nullptr) {
        return 0;
    }
    // Attached before any module runs, so a module's start-up may already
    // reach other modules' records.
    if (plat_tls_set(g_index, block) != 0) {
        std::free(block);
        return 0;
    }
    int result = 0;
    for (const Module *module : kThreadInitOrder) {
        result = module->thread_init(&block[module->slot]);
        if (result == 0) {
            return 0;
        }
    }
    return result > 0 ? 1 : 0;
}

VQ_API int clean_glob_thread(void) {
    auto *block = static_cast<void **>(plat_tls_get(g_index));
    if (block == nullptr) {
        return 0;
    }
    for (const Module *module : kThreadCleanOrder) {
        module->thread_clean(&block[module->slot]);
    }
    std::free(block);
    // The value is cleared rather than left dangling: a later call on this
    // thread then builds a fresh block instead of reaching freed memory.
    plat_tls_set(g_index, nullptr);
    return 1;
}

}  // extern "C"

// The loader's verdicts: a failed module start-up does not refuse the load,
// a thread that cannot get its block does.
int plat_entry_hook(int reason) {
    switch (reason) {
    case kPlatProcessAttach:
        init_glob();
        return init_glob_thread();
    case kPlatThreadAttach: return init_glob_thread();
    case kPlatThreadDetach: clean_glob_thread(); return 1;
    case kPlatProcessDetach:
        clean_glob_thread();
        clean_glob();
        return 1;
    default: return 1;
    }
}
