// Selection groups: many sessions watched at once for reading, writing and
// exceptions, and the ready ones handed out one at a time.
//
// The member table grows by five slots when full; a removed member leaves a
// null slot that the next add fills. A wait records each member's events;
// the members with any are then reported in table order. The count of
// ready members is what the wait returns and what is left to report, so a
// member that is readable and writable at once counts once.
#include <new>
#include <vector>

#include "internal/checked_handle.h"
#include "sl_net/session.h"
#include "vq_glob/err.h"

namespace {

using vq::net::Session;

inline constexpr size_t kGrowth = 5;

struct Member {
    Session *session = nullptr;  // null: a free slot
    int32_t interest = 0;
    int32_t ready = 0;
};

struct Group {
    vq::tag::HandleTag tag{vq::tag::Kind::net_group};
    std::vector<Member> slots;
    int32_t members = 0;
    int32_t to_report = 0;
    size_t next = 0;
};

Group *checked_group(void *handle, const char *function) {
    if (handle == nullptr) {
        vq::net::raise(ERR_NET_BADPTR);
        return nullptr;
    }
    return vq::tag::checked<Group>(handle, vq::tag::Kind::net_group, vq::raise::Report::add, function, "group");
}

#define VQ_NET_GROUP(handle) checked_group((handle), __func__)

void forget_results(Group &group) {
    for (Member &member : group.slots) {
        member.ready = 0;
    }
    group.to_report = 0;
    group.next = 0;
}

Member *find(Group &group, const Session *session) {
    for (Member &member : group.slots) {
        if (member.session == session) {
            return &member;
        }
    }
    return nullptr;
}

// The first free slot, growing the table when there is none.
Member *free_slot(Group &group) {
    Member *slot = find(group, nullptr);
    if (slot != nullptr) {
        return slot;
    }
    const size_t used = group.slots.size();
    group.slots.resize(used + kGrowth);
    return &group.slots[used];
}

// More members waiting for one kind of event than a socket set holds.
bool sets_overflow(const std::vector<PlatSocketWatch> &watches) {
    size_t counts[3] = {0, 0, 0};
    for (const PlatSocketWatch &watch : watches) {
        counts[0] += (watch.interest & kPlatSocketRead) != 0;
        counts[1] += (watch.interest & kPlatSocketWrite) != 0;
        counts[2] += (watch.interest & kPlatSocketException) != 0;
    }
    return counts[0] > kPlatSocketSetSize || counts[1] > kPlatSocketSetSize || counts[2] > kPlatSocketSetSize;
}

}  // namespace

VQ_API int sl_net_allocate_selection_group(void **group) {
    if (group == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *group = new (std::nothrow) Group;
    return *group != nullptr ? 1 : vq::net::raise(ERR_NET_MALLOC);
}

VQ_API int sl_net_init_selection_group(void *group) {
    Group *own = VQ_NET_GROUP(group);
    if (own == nullptr) {
        return 0;
    }
    own->slots.clear();
    own->members = 0;
    forget_results(*own);
    return 1;
}

VQ_API int sl_net_free_selection_group(void **group) {
    if (group == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    Group *own = VQ_NET_GROUP(*group);
    if (own == nullptr) {
        return 0;
    }
    delete own;
    *group = nullptr;
    return 1;
}

VQ_API int sl_net_add_to_selection_group(void *group, void *session, int32_t events) {
    Group *own = VQ_NET_GROUP(group);
    Session *member = own != nullptr ? VQ_NET_SESSION(session) : nullptr;
    if (member == nullptr) {
        return 0;
    }
    // A session already in the group only changes what it waits for.
    Member *slot = find(*own, member);
    if (slot != nullptr) {
        slot->interest = events;
        return 1;
    }
    try {
        slot = free_slot(*own);
    } catch (const std::bad_alloc &) {
        return vq::net::raise(ERR_NET_MALLOC);
    }
    *slot = Member{member, events, 0};
    ++own->members;
    return 1;
}

VQ_API int sl_net_remove_from_selection_group(void *group, void *session) {
    Group *own = VQ_NET_GROUP(group);
    if (own == nullptr) {
        return 0;
    }
    Member *slot = session != nullptr ? find(*own, static_cast<Session *>(session)) : nullptr;
    if (slot == nullptr) {
        return vq::net::raise(ERR_NET_BADSESS);
    }
    // A member removed before it was reported is no longer owed.
    if (slot->ready != 0 && own->to_report > 0) {
        --own->to_report;
    }
    *slot = Member{};
    --own->members;
    return 1;
}

VQ_API int sl_net_get_number_of_members(void *group, int32_t *count) {
    Group *own = VQ_NET_GROUP(group);
    if (own == nullptr) {
        return 0;
    }
    if (count == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *count = own->members;
    return 1;
}

// A member whose layer (TLS) already holds received bytes can be read
// without its socket becoming readable: SL_NET_EVENT_READ, else 0.
int32_t held_bytes_event(const Member &member) {
    const Session &session = *member.session;
    if ((member.interest & SL_NET_EVENT_READ) == 0 || session.hook_state == 0 || session.hook_pending == nullptr) {
        return 0;
    }
    return session.hook_pending(member.session, session.hook_data) != 0 ? SL_NET_EVENT_READ : 0;
}

VQ_API int sl_net_select(void *group, int32_t timeout_ms, int32_t *ready) {
    Group *own = VQ_NET_GROUP(group);
    if (own == nullptr) {
        return 0;
    }
    if (ready == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    forget_results(*own);
    // Members without a socket have nothing to wait for.
    std::vector<PlatSocketWatch> watches;
    std::vector<Member *> watched;
    std::vector<int32_t> held;
    bool any_held = false;
    try {
        for (Member &member : own->slots) {
            if (member.session != nullptr && member.session->socket != kPlatNoSocket && member.interest != 0) {
                watches.push_back(PlatSocketWatch{member.session->socket, member.interest, 0});
                watched.push_back(&member);
                held.push_back(held_bytes_event(member));
                any_held = any_held || held.back() != 0;
            }
        }
    } catch (const std::bad_alloc &) {
        return vq::net::raise(ERR_NET_MALLOC);
    }
    if (sets_overflow(watches)) {
        err_add_text_error("more than 1024 sessions of the group wait for one kind of event");
        return vq::net::raise(ERR_NET_SELECT);
    }
    // Bytes already held are ready now: the sockets are only polled.
    const int32_t error = plat_socket_wait(watches.data(), watches.size(), any_held ? 0 : timeout_ms);
    if (error != 0) {
        return vq::net::raise_socket(error, ERR_NET_SELECT);
    }
    for (size_t i = 0; i < watches.size(); ++i) {
        watched[i]->ready = watches[i].ready | held[i];
        own->to_report += watched[i]->ready != 0;
    }
    *ready = own->to_report;
    return 1;
}

VQ_API int sl_net_get_next_event(void *group, void **session, int32_t *events) {
    Group *own = VQ_NET_GROUP(group);
    if (own == nullptr) {
        return 0;
    }
    if (session == nullptr || events == nullptr) {
        return vq::net::raise(ERR_NET_BADPTR);
    }
    *session = nullptr;
    *events = 0;
    if (own->to_report == 0) {
        return 1;
    }
    for (size_t i = own->next; i < own->slots.size(); ++i) {
        Member &member = own->slots[i];
        if (member.session != nullptr && member.ready != 0) {
            *session = member.session;
            *events = member.ready;
            --own->to_report;
            own->next = i + 1;
            return 1;
        }
    }
    own->to_report = 0;
    return vq::net::raise(ERR_NET_INCNST);
}
