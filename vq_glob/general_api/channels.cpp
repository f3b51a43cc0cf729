// Process handles: pipes and channels.
//
// A handle's pipe1 carries what its owner sends and pipe2 what the owner
// receives; a child started from the handle gets the other ends (pipe1_0 to
// read, pipe2_1 to write). A channel is a handle of kind 4 holding its own
// copies of the owner's two ends, so that the channel and its parent handle
// can be freed in any order.
#include <cstdio>

#include "general_api/api_state.h"
#include "vq_glob/dbg.h"

namespace vq::api {
namespace {

// The entry of a channel handle; null with an error for any other handle.
Entry *checked_channel(const char *function, int32_t channel) {
    Entry *entry = checked_entry(function, channel);
    if (entry != nullptr && entry->kind != API_KIND_CHANNEL) {
        char what[128];
        std::snprintf(what, sizeof what, "%s: handle %d is not a channel", function,
                      static_cast<int>(channel));
        raise_bad_param(channel, what);
        return nullptr;
    }
    return entry;
}

// Gives the handle a fresh pair of pipes; none of their ends is inherited
// until a run function hands the child its two.
bool create_pipes(int32_t handle, EntryHandles &handles) {
    PlatHandle ends[4] = {kPlatNoHandle, kPlatNoHandle, kPlatNoHandle, kPlatNoHandle};
    int32_t error = plat_pipe_create(&ends[0], &ends[1]);
    if (error == 0) {
        error = plat_pipe_create(&ends[2], &ends[3]);
    }
    if (error != 0) {
        for (PlatHandle end : ends) {
            if (end != kPlatNoHandle) {
                plat_handle_close(end);
            }
        }
        raise_system(handle, error, ERR_EXE_PIPECREAT);
        return false;
    }
    handles.pipe1_0.handle = ends[0];
    handles.pipe1_1.handle = ends[1];
    handles.pipe2_0.handle = ends[2];
    handles.pipe2_1.handle = ends[3];
    new_dbg_str(kTraceChannel, "api_allocate_channel() - created pipes for handle %d\n", handle);
    return true;
}

// Copies one end of the parent into the channel (nothing when the parent
// does not hold it).
bool copy_end(int32_t channel, const PipeEnd &from, PipeEnd &to) {
    if (from.handle == kPlatNoHandle) {
        return true;
    }
    int32_t error = plat_handle_duplicate(from.handle, &to.handle);
    if (error != 0) {
        to.handle = kPlatNoHandle;
        raise_system(channel, error, ERR_EXE_GENERAL,
                     "error duplicating a pipe end for a channel");
        return false;
    }
    return true;
}

int allocate_channel(int32_t *channel, int32_t handle) {
    const char *function = "api_allocate_channel";
    Entry *parent = checked_entry(function, handle);
    if (parent == nullptr) {
        return 0;
    }
    if (parent->kind == API_KIND_CHANNEL) {
        raise_bad_param(handle, "api_allocate_channel: a channel cannot carry channels");
        return 0;
    }
    if (!parent->handles.has_pipes() && !create_pipes(handle, parent->handles)) {
        return 0;
    }
    // Entries are held by pointer, so parent stays valid when the table grows.
    int32_t h = allocate_entry(function, API_KIND_CHANNEL);
    if (h == kNoHandle) {
        return 0;
    }
    Entry &entry = *record()->table.entries[static_cast<size_t>(h)];
    entry.pid = parent->pid;
    if (!copy_end(h, parent->handles.pipe1_1, entry.handles.pipe1_1) ||
        !copy_end(h, parent->handles.pipe2_0, entry.handles.pipe2_0)) {
        release_entry(record()->table, h);
        return 0;
    }
    new_dbg_str(kTraceChannel, "api_allocate_channel() - channel %d on handle %d\n", h, handle);
    *channel = h;
    return 1;
}

int write_to_channel(int32_t channel, const void *data, int32_t size) {
    Entry *entry = checked_channel("api_write_to_channel", channel);
    if (entry == nullptr) {
        return 0;
    }
    if (size < 0 || (data == nullptr && size > 0)) {
        raise_bad_param(channel,
                        size < 0 ? "api_write_to_channel: negative size" : "api_write_to_channel: data");
        return 0;
    }
    if (entry->handles.pipe1_1.handle == kPlatNoHandle) {
        raise(channel, ERR_EXE_GENERAL, "channel has no pipe to write to");
        return 0;
    }
    int32_t error = size > 0 ? plat_pipe_write(entry->handles.pipe1_1.handle, data, static_cast<size_t>(size)) : 0;
    if (error != 0) {
        raise_system(channel, error, ERR_EXE_PIPEWRITE);
        return 0;
    }
    new_dbg_str(kTraceChannel, "api_write_to_channel() - channel %d , %d bytes written\n", channel, size);
    return 1;
}

int listen_on_channel(int32_t channel, void *buffer, int32_t size, int32_t *received, int32_t timeout_ms) {
    Entry *entry = checked_channel("api_listen_on_channel", channel);
    if (entry == nullptr) {
        return 0;
    }
    if (buffer == nullptr || size <= 0 || received == nullptr) {
        raise_bad_param(channel, buffer == nullptr ? "api_listen_on_channel: buffer"
                                 : size <= 0       ? "api_listen_on_channel: size"
                                                   : "api_listen_on_channel: received");
        return 0;
    }
    *received = 0;
    if (entry->handles.pipe2_0.handle == kPlatNoHandle) {
        raise(channel, ERR_EXE_GENERAL, "channel has no pipe to listen on");
        return 0;
    }
    size_t got = 0;
    int32_t error = 0;
    switch (plat_pipe_read(entry->handles.pipe2_0.handle, buffer, static_cast<size_t>(size), timeout_ms, &got,
                           &error)) {
        case PlatWait::ready:
            *received = static_cast<int32_t>(got);
            return 1;
        case PlatWait::timed_out:
            new_dbg_str(kTraceChannel, "api_listen_on_channel() - channel %d , nothing arrived in %d ms\n",
                        channel, timeout_ms);
            return 1;
        case PlatWait::closed:
            raise(channel, ERR_EXE_PIPEREAD);
            return 0;
        case PlatWait::failed:
            break;
    }
    raise_system(channel, error, ERR_EXE_PIPEREAD);
    return 0;
}

int clean_channel(int32_t channel) {
    Entry *entry = checked_channel("api_clean_channel", channel);
    if (entry == nullptr) {
        return 0;
    }
    if (entry->handles.pipe2_0.handle == kPlatNoHandle) {
        return 1;
    }
    unsigned char scratch[4096];
    size_t got = 0;
    int32_t error = 0;
    for (;;) {
        PlatWait wait = plat_pipe_read(entry->handles.pipe2_0.handle, scratch, sizeof scratch, 0, &got, &error);
        if (wait == PlatWait::failed) {
            raise_system(channel, error, ERR_EXE_PIPEREAD);
            return 0;
        }
        if (wait != PlatWait::ready) {
            return 1;
        }
    }
}

// Ends given to a handle: each open one at most once, or a later free would
// close a descriptor twice.
bool distinct_ends(const api_pipes &pipes) {
    const intptr_t ends[4] = {pipes.pipe1[0], pipes.pipe1[1], pipes.pipe2[0], pipes.pipe2[1]};
    for (int i = 0; i < 4; ++i) {
        for (int j = i + 1; j < 4; ++j) {
            if (ends[i] != kPlatNoHandle && ends[i] == ends[j]) {
                return false;
            }
        }
    }
    return true;
}

// Closes an end the handle holds unless the new set keeps it.
void replace_end(PipeEnd &end, intptr_t incoming, const api_pipes &pipes) {
    bool kept = end.handle == pipes.pipe1[0] || end.handle == pipes.pipe1[1] ||
                end.handle == pipes.pipe2[0] || end.handle == pipes.pipe2[1];
    if (!kept) {
        close_end(end);
    }
    end.handle = incoming;
}

int copy_pipes_to_handle(int32_t h, const api_pipes *pipes) {
    Entry *entry = checked_entry("api_copy_pipes_to_handle", h);
    if (entry == nullptr) {
        return 0;
    }
    if (pipes == nullptr || !distinct_ends(*pipes)) {
        raise_bad_param(h, pipes == nullptr ? "api_copy_pipes_to_handle: pipes"
                                            : "api_copy_pipes_to_handle: the same pipe end given twice");
        return 0;
    }
    EntryHandles &handles = entry->handles;
    replace_end(handles.pipe1_0, pipes->pipe1[0], *pipes);
    replace_end(handles.pipe1_1, pipes->pipe1[1], *pipes);
    replace_end(handles.pipe2_0, pipes->pipe2[0], *pipes);
    replace_end(handles.pipe2_1, pipes->pipe2[1], *pipes);
    return 1;
}

intptr_t take_end(PipeEnd &end) {
    intptr_t handle = end.handle;
    end.handle = kPlatNoHandle;
    return handle;
}

int copy_pipes_from_handle(int32_t h, api_pipes *pipes) {
    Entry *entry = checked_entry("api_copy_pipes_from_handle", h);
    if (entry == nullptr) {
        return 0;
    }
    if (pipes == nullptr) {
        raise_bad_param(h, "api_copy_pipes_from_handle: pipes");
        return 0;
    }
    EntryHandles &handles = entry->handles;
    pipes->pipe1[0] = take_end(handles.pipe1_0);
    pipes->pipe1[1] = take_end(handles.pipe1_1);
    pipes->pipe2[0] = take_end(handles.pipe2_0);
    pipes->pipe2[1] = take_end(handles.pipe2_1);
    return 1;
}

}  // namespace
}  // namespace vq::api

using namespace vq::api;

extern "C" {

VQ_API int api_allocate_channel(int32_t *channel, int32_t handle) {
    if (channel == nullptr) {
        raise_bad_param(kNoHandle, "api_allocate_channel: channel address is NULL");
        return 0;
    }
    *channel = kNoHandle;
    return guarded("api_allocate_channel", [&] { return allocate_channel(channel, handle); });
}

VQ_API int api_free_channel(int32_t channel) {
    return guarded("api_free_channel", [&] {
        return checked_channel("api_free_channel", channel) == nullptr ? 0 : api_free_handle(channel);
    });
}

VQ_API int api_clean_channel(int32_t channel) {
    return guarded("api_clean_channel", [&] { return clean_channel(channel); });
}

VQ_API int api_write_to_channel(int32_t channel, const void *data, int32_t size) {
    return guarded("api_write_to_channel", [&] { return write_to_channel(channel, data, size); });
}

VQ_API int api_listen_on_channel(int32_t channel, void *buffer, int32_t size, int32_t *received,
                                 int32_t timeout_ms) {
    return guarded("api_listen_on_channel",
                   [&] { return listen_on_channel(channel, buffer, size, received, timeout_ms); });
}

VQ_API int api_copy_pipes_to_handle(int32_t h, const api_pipes *pipes) {
    return guarded("api_copy_pipes_to_handle", [&] { return copy_pipes_to_handle(h, pipes); });
}

VQ_API int api_copy_pipes_from_handle(int32_t h, api_pipes *pipes) {
    return guarded("api_copy_pipes_from_handle", [&] { return copy_pipes_from_handle(h, pipes); });
}

}  // extern "C"
