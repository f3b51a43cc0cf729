// Linked lists: the plain list with one built-in cursor (ll_), the locked list
// whose nodes are reference-counted by the iterators standing on them (lln_),
// and the critical-section wrappers (cs_).
//
// Both lists keep the caller's data pointers in doubly linked nodes and hold
// their lock for the whole of every call, so one list may be shared between
// threads. Nodes and list headers come from malloc, like the C callers' own
// data, and no C++ exception ever leaves this file.
#include "vq_glob/llist.h"

#include <cinttypes>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "internal/checked_handle.h"
#include "internal/raise.h"
#include "platform/platform.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

// The caller's critical-section storage is used as the platform's lock in place.
static_assert(sizeof(cs_critical_section) >= sizeof(PlatLock), "cs_critical_section cannot hold a PlatLock");
static_assert(alignof(cs_critical_section) >= alignof(PlatLock),
              "cs_critical_section under-aligned for PlatLock");

namespace vq::llist {
namespace {

using raise::Report;
using tag::Kind;

// Failure lines of the locked list go to the ERROR trace channel.
constexpr int32_t kTraceChannel = DBG_CHANNEL_ERROR;
constexpr const char *kModule = "llist";

// Holds a lock for the lifetime of a scope, so that every return path leaves it.
class LockGuard {
public:
    explicit LockGuard(PlatLock *lock) : lock_(lock) { plat_lock_enter(lock_); }
    ~LockGuard() { plat_lock_leave(lock_); }
    LockGuard(const LockGuard &) = delete;
    LockGuard &operator=(const LockGuard &) = delete;

private:
    PlatLock *lock_;
};

// ---- Plain list ------------------------------------------------------------

struct PlainList;

// The node callers see is the first member, so an ll_node pointer handed out
// converts back to its PlainNode. The owner lets ll_free_node ignore a node of
// another list without walking this one.
struct PlainNode {
    ll_node pub;
    PlainList *owner;
};

struct PlainList {
    uint32_t tag;  // Kind::plain_list while the list lives
    ll_node *first;
    ll_node *last;
    ll_node *cursor;  // null: before the start
    int32_t count;
    PlatLock *lock;  // allocated on its own
};

// The list behind a handle that is not null, or null with a PARAMS error
// for a handle of another kind or one already disposed.
PlainList *plain(void *list, const char *function) {
    return tag::checked<PlainList>(list, Kind::plain_list, Report::add, function, "list");
}

// ---- Locked list -----------------------------------------------------------

struct LockedNode {
    LockedNode *next;
    LockedNode *prev;
    void *data;
    int32_t refs;    // iterators standing on the node
    int32_t marked;  // 1: removed, freed when its last iterator leaves
};

struct LockedList {
    uint32_t tag;  // Kind::locked_list until the header is released
    LockedNode *first;
    LockedNode *last;
    void *reserved;  // always zero
    uint32_t count;  // nodes still linked, marked ones included
    PlatLock lock;
    uint32_t iterators;  // iterators open on the list
    int32_t disposed;    // no node may be added any more
    int32_t free_data;   // free() each node's data when the node goes
    void (*cb)(void *data);
    // Holds taken through lln_lock_list and not yet given back. A disposed
    // list is released only when this is 0 too, so that a dispose (or the
    // last iterator's free) inside a lock bracket never destroys the lock its
    // caller still holds: lln_unlock_list then completes the release.
    int32_t user_locks;
};

struct Iterator {
    uint32_t tag;  // Kind::list_iterator until the iterator is freed
    LockedList *list;
    LockedNode *current;  // null: at the end (or not yet moved)
};

LockedList *locked(void *list, const char *function) {
    return tag::checked<LockedList>(list, Kind::locked_list, Report::add, function, "list");
}
Iterator *iterator(void *it, const char *function) {
    return tag::checked<Iterator>(it, Kind::list_iterator, Report::add, function, "it");
}

// Runs the caller's free callback. A C++ callback that throws would unwind
// through C callers; its exception stops here and the node is freed anyway.
void run_free_callback(void (*cb)(void *), void *data) {
    try {
        cb(data);
    } catch (...) {
        new_dbg_str(kTraceChannel, "lln: free callback threw an exception, ignored...\n");
    }
}

// Frees a node no iterator stands on any more (lock held): the data goes
// first when the list owns it, and the callback then sees the data field as
// it is at that moment, which is NULL when the list has just freed it.
void destroy_node(LockedList *list, LockedNode *node) {
    if (list->free_data != 0) {
        std::free(node->data);
        node->data = nullptr;
    }
    if (list->cb != nullptr) {
        run_free_callback(list->cb, node->data);
    }
    if (node->prev != nullptr) {
        node->prev->next = node->next;
    } else {
        list->first = node->next;
    }
    if (node->next != nullptr) {
        node->next->prev = node->prev;
    } else {
        list->last = node->prev;
    }
    std::free(node);
    --list->count;
}

// Marks a node removed and frees it at once unless an iterator stands on it.
void remove_node(LockedList *list, LockedNode *node) {
    node->marked = 1;
    if (node->refs <= 0) {
        destroy_node(list, node);
    }
}

// Drops one iterator's hold on a node; the last holder of a removed node frees it.
void release_node(LockedList *list, LockedNode *node) {
    if (node == nullptr) {
        return;
    }
    --node->refs;
    if (node->refs <= 0 && node->marked != 0) {
        destroy_node(list, node);
    }
}

LockedNode *first_unmarked(LockedNode *node) {
    while (node != nullptr && node->marked != 0) {
        node = node->next;
    }
    return node;
}

// Puts the iterator on target (raising its count) before letting go of the
// node it leaves, so that the walk never reads a node it has just freed.
void move_iterator(Iterator *it, LockedNode *target) {
    if (target != nullptr) {
        ++target->refs;
    }
    LockedNode *left = it->current;
    it->current = target;
    release_node(it->list, left);
}

// A disposed list stays while iterators are open on it (and while a lock
// bracket is open); the call that finds neither left releases it. The caller
// has already left the lock.
bool release_due(const LockedList *list) {
    return list->disposed != 0 && list->iterators == 0 && list->user_locks == 0;
}

void release_list(LockedList *list) {
    plat_lock_destroy(&list->lock);
    tag::erase(&list->tag);
    list->~LockedList();
    std::free(list);
}

}  // namespace
}  // namespace vq::llist

using vq::llist::Iterator;
using vq::llist::kModule;
using vq::llist::kTraceChannel;
using vq::llist::LockedList;
using vq::llist::LockedNode;
using vq::llist::LockGuard;
using vq::llist::PlainList;
using vq::llist::PlainNode;
using vq::raise::Report;
using vq::tag::Kind;

// ---- Critical sections -------------------------------------------------------

extern "C" VQ_API void cs_initialize_critical_section(cs_critical_section *cs) {
    if (cs != nullptr) {
        plat_lock_init(reinterpret_cast<PlatLock *>(cs->storage));
    }
}

extern "C" VQ_API void cs_enter_critical_section(cs_critical_section *cs) {
    if (cs != nullptr) {
        plat_lock_enter(reinterpret_cast<PlatLock *>(cs->storage));
    }
}

extern "C" VQ_API void cs_leave_critical_section(cs_critical_section *cs) {
    if (cs != nullptr) {
        plat_lock_leave(reinterpret_cast<PlatLock *>(cs->storage));
    }
}

extern "C" VQ_API void cs_delete_critical_section(cs_critical_section *cs) {
    if (cs != nullptr) {
        plat_lock_destroy(reinterpret_cast<PlatLock *>(cs->storage));
    }
}

// ---- Plain list ----------------------------------------------------------------

extern "C" VQ_API void *ll_init_list(void) {
    auto *list = static_cast<PlainList *>(std::malloc(sizeof(PlainList)));
    if (list == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    auto *lock = static_cast<PlatLock *>(std::malloc(sizeof(PlatLock)));
    if (lock == nullptr) {
        std::free(list);
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    new (lock) PlatLock{};
    plat_lock_init(lock);
    new (list) PlainList{0, nullptr, nullptr, nullptr, 0, lock};
    vq::tag::stamp(&list->tag, Kind::plain_list);
    return list;
}

extern "C" VQ_API void ll_dispose_list(void **list) {
    if (list == nullptr || *list == nullptr) {
        return;
    }
    PlainList *l = vq::llist::plain(*list, __func__);
    if (l == nullptr) {
        return;
    }
    {
        LockGuard guard(l->lock);
        ll_node *node = l->first;
        while (node != nullptr) {
            ll_node *next = node->next;
            std::free(reinterpret_cast<PlainNode *>(node));
            node = next;
        }
        l->first = l->last = l->cursor = nullptr;
        l->count = 0;
    }
    plat_lock_destroy(l->lock);
    std::free(l->lock);
    vq::tag::erase(&l->tag);
    std::free(l);
    *list = nullptr;
}

extern "C" VQ_API ll_node *ll_add_node_last(void *list, void *data) {
    if (list == nullptr) {
        return nullptr;
    }
    PlainList *l = vq::llist::plain(list, __func__);
    if (l == nullptr) {
        return nullptr;
    }
    auto *node = static_cast<PlainNode *>(std::malloc(sizeof(PlainNode)));
    if (node == nullptr) {
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    LockGuard guard(l->lock);
    new (node) PlainNode{{nullptr, l->last, data}, l};
    if (l->last != nullptr) {
        l->last->next = &node->pub;
    } else {
        l->first = &node->pub;
    }
    l->last = &node->pub;
    ++l->count;
    return &node->pub;
}

// Freeing the cursor's node steps the cursor back to the node before it (or to
// "before the start"), so a forward walk that frees as it goes carries on
// with the node that followed the freed one.
extern "C" VQ_API void ll_free_node(void *list, ll_node *node) {
    if (list == nullptr || node == nullptr) {
        return;
    }
    PlainList *l = vq::llist::plain(list, __func__);
    if (l == nullptr) {
        return;
    }
    LockGuard guard(l->lock);
    auto *own = reinterpret_cast<PlainNode *>(node);
    if (own->owner != l) {
        return;
    }
    if (l->cursor == node) {
        l->cursor = node->prev;
    }
    if (node->prev != nullptr) {
        node->prev->next = node->next;
    } else {
        l->first = node->next;
    }
    if (node->next != nullptr) {
        node->next->prev = node->prev;
    } else {
        l->last = node->prev;
    }
    own->owner = nullptr;
    std::free(own);
    --l->count;
}

extern "C" VQ_API ll_node *ll_get_first_node(void *list) {
    if (list == nullptr) {
        return nullptr;
    }
    PlainList *l = vq::llist::plain(list, __func__);
    if (l == nullptr) {
        return nullptr;
    }
    LockGuard guard(l->lock);
    l->cursor = l->first;
    return l->cursor;
}

extern "C" VQ_API ll_node *ll_get_last_node(void *list) {
    if (list == nullptr) {
        return nullptr;
    }
    PlainList *l = vq::llist::plain(list, __func__);
    if (l == nullptr) {
        return nullptr;
    }
    LockGuard guard(l->lock);
    l->cursor = l->last;
    return l->cursor;
}

extern "C" VQ_API ll_node *ll_get_next_node(void *list) {
    if (list == nullptr) {
        return nullptr;
    }
    PlainList *l = vq::llist::plain(list, __func__);
    if (l == nullptr) {
        return nullptr;
    }
    LockGuard guard(l->lock);
    if (l->first == nullptr || l->cursor == l->last) {
        l->cursor = nullptr;
    } else if (l->cursor == nullptr) {
        l->cursor = l->first;
    } else {
        l->cursor = l->cursor->next;
    }
    return l->cursor;
}

extern "C" VQ_API ll_node *ll_get_prev_node(void *list) {
    if (list == nullptr) {
        return nullptr;
    }
    PlainList *l = vq::llist::plain(list, __func__);
    if (l == nullptr) {
        return nullptr;
    }
    LockGuard guard(l->lock);
    if (l->cursor == nullptr) {
        l->cursor = l->last;
    } else if (l->cursor == l->first) {
        l->cursor = nullptr;
    } else {
        l->cursor = l->cursor->prev;
    }
    return l->cursor;
}

extern "C" VQ_API int32_t ll_get_count(void *list) {
    if (list == nullptr) {
        return 0;
    }
    PlainList *l = vq::llist::plain(list, __func__);
    if (l == nullptr) {
        return 0;
    }
    LockGuard guard(l->lock);
    return l->count;
}

// ---- Locked list ---------------------------------------------------------------

extern "C" VQ_API void *lln_init_list(void) {
    void *block = std::malloc(sizeof(LockedList));
    if (block == nullptr) {
        new_dbg_str(kTraceChannel, "lln_init_list: out of memory, return...\n");
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    auto *list = new (block) LockedList{};
    plat_lock_init(&list->lock);
    vq::tag::stamp(&list->tag, Kind::locked_list);
    return list;
}

extern "C" VQ_API void lln_set_cb(void *list, void (*cb)(void *data)) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_set_cb: list header is NULL, return...\n");
        return;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return;
    }
    LockGuard guard(&l->lock);
    l->cb = cb;
}

extern "C" VQ_API void lln_set_free_data_flag(void *list, int32_t flag) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_set_free_data_flag: list header is NULL, return...\n");
        return;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return;
    }
    LockGuard guard(&l->lock);
    l->free_data = flag != 0 ? 1 : 0;
}

extern "C" VQ_API void *lln_add_node_last(void *list, void *data) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_add_node_last: list header is NULL, return...\n");
        return nullptr;
    }
    if (data == nullptr) {
        new_dbg_str(kTraceChannel, "lln_add_node_last: data is NULL, return...\n");
        return nullptr;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return nullptr;
    }
    LockGuard guard(&l->lock);
    if (l->disposed != 0) {
        new_dbg_str(kTraceChannel, "lln_add_node_last: list is disposed, return...\n");
        return nullptr;
    }
    auto *node = static_cast<LockedNode *>(std::malloc(sizeof(LockedNode)));
    if (node == nullptr) {
        new_dbg_str(kTraceChannel, "lln_add_node_last: out of memory, return...\n");
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    new (node) LockedNode{nullptr, l->last, data, 0, 0};
    if (l->last != nullptr) {
        l->last->next = node;
    } else {
        l->first = node;
    }
    l->last = node;
    ++l->count;
    return data;
}

// Nodes already removed are passed over, so freeing the same data twice
// finds nothing the second time.
extern "C" VQ_API int lln_free_node(void *list, void *data) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_free_node: list header is NULL, return 0...\n");
        return 0;
    }
    if (data == nullptr) {
        new_dbg_str(kTraceChannel, "lln_free_node: data is NULL, return 0...\n");
        return 0;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return 0;
    }
    LockGuard guard(&l->lock);
    for (LockedNode *node = l->first; node != nullptr; node = node->next) {
        if (node->marked == 0 && node->data == data) {
            vq::llist::remove_node(l, node);
            return 1;
        }
    }
    return 0;
}

// Once no iterator (and no lock bracket) remains, the header and its lock are
// freed too: the list pointer is then gone, exactly as after ll_dispose_list.
// While iterators remain, the header lives on for them, refusing additions
// and new iterators; the last lln_free_list_iterator releases it.
extern "C" VQ_API void lln_dispose_list(void *list) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_dispose_list: list header is NULL, return...\n");
        return;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return;
    }
    bool release = false;
    {
        LockGuard guard(&l->lock);
        LockedNode *node = l->first;
        while (node != nullptr) {
            LockedNode *next = node->next;
            vq::llist::remove_node(l, node);
            node = next;
        }
        l->disposed = 1;
        release = vq::llist::release_due(l);
    }
    if (release) {
        vq::llist::release_list(l);
    }
}

extern "C" VQ_API int lln_lock_list(void *list) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_lock_list: list header is NULL, return 0...\n");
        return VQ_PARAMS(Report::add, "list");
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return 0;
    }
    plat_lock_enter(&l->lock);
    ++l->user_locks;
    return 1;
}

// Must be called by the thread that took the lock with lln_lock_list.
extern "C" VQ_API int lln_unlock_list(void *list) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_unlock_list: list header is NULL, return 0...\n");
        return VQ_PARAMS(Report::add, "list");
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return 0;
    }
    bool release = false;
    if (l->user_locks > 0) {
        --l->user_locks;
        release = vq::llist::release_due(l);
    }
    plat_lock_leave(&l->lock);
    if (release) {
        vq::llist::release_list(l);
    }
    return 1;
}

extern "C" VQ_API uint32_t lln_get_count(void *list) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_get_count: list header is NULL, return 0...\n");
        return 0;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return 0;
    }
    LockGuard guard(&l->lock);
    return l->count;
}

extern "C" VQ_API void *lln_get_list_iterator(void *list) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_get_list_iterator: list header is NULL, return...\n");
        return nullptr;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return nullptr;
    }
    LockGuard guard(&l->lock);
    if (l->disposed != 0) {
        new_dbg_str(kTraceChannel, "lln_get_list_iterator: list is disposed, return...\n");
        return nullptr;
    }
    auto *it = static_cast<Iterator *>(std::malloc(sizeof(Iterator)));
    if (it == nullptr) {
        new_dbg_str(kTraceChannel, "lln_get_list_iterator: out of memory, return...\n");
        VQ_NO_MEMORY(Report::add, kModule);
        return nullptr;
    }
    new (it) Iterator{0, l, nullptr};
    vq::tag::stamp(&it->tag, Kind::list_iterator);
    ++l->iterators;
    return it;
}

extern "C" VQ_API int lln_free_list_iterator(void *it) {
    if (it == nullptr) {
        new_dbg_str(kTraceChannel, "lln_free_list_iterator: iterator is NULL, return 0...\n");
        return 0;
    }
    Iterator *iter = vq::llist::iterator(it, __func__);
    if (iter == nullptr) {
        return 0;
    }
    LockedList *l = iter->list;
    bool release = false;
    {
        LockGuard guard(&l->lock);
        vq::llist::release_node(l, iter->current);
        iter->current = nullptr;
        --l->iterators;
        release = vq::llist::release_due(l);
    }
    vq::tag::erase(&iter->tag);
    std::free(iter);
    if (release) {
        vq::llist::release_list(l);
    }
    return 1;
}

extern "C" VQ_API void lln_iterator_move_first(void *it) {
    if (it == nullptr) {
        new_dbg_str(kTraceChannel, "lln_iterator_move_first: iterator is NULL, return...\n");
        return;
    }
    Iterator *iter = vq::llist::iterator(it, __func__);
    if (iter == nullptr) {
        return;
    }
    LockGuard guard(&iter->list->lock);
    vq::llist::move_iterator(iter, vq::llist::first_unmarked(iter->list->first));
}

// An iterator at the end (or never moved) stays where it is: a walk begins
// with lln_iterator_move_first.
extern "C" VQ_API void lln_iterator_move_next(void *it) {
    if (it == nullptr) {
        new_dbg_str(kTraceChannel, "lln_iterator_move_next: iterator is NULL, return...\n");
        return;
    }
    Iterator *iter = vq::llist::iterator(it, __func__);
    if (iter == nullptr) {
        return;
    }
    LockGuard guard(&iter->list->lock);
    if (iter->current != nullptr) {
        vq::llist::move_iterator(iter, vq::llist::first_unmarked(iter->current->next));
    }
}

extern "C" VQ_API int lln_iterator_end(void *it) {
    if (it == nullptr) {
        new_dbg_str(kTraceChannel, "lln_iterator_end: iterator is NULL, return 1...\n");
        return 1;
    }
    Iterator *iter = vq::llist::iterator(it, __func__);
    if (iter == nullptr) {
        return 1;
    }
    LockGuard guard(&iter->list->lock);
    return iter->current == nullptr ? 1 : 0;
}

extern "C" VQ_API void *lln_iterator_get_data(void *it) {
    if (it == nullptr) {
        new_dbg_str(kTraceChannel, "lln_iterator_get_data: iterator is NULL, return...\n");
        return nullptr;
    }
    Iterator *iter = vq::llist::iterator(it, __func__);
    if (iter == nullptr) {
        return nullptr;
    }
    LockGuard guard(&iter->list->lock);
    LockedNode *node = iter->current;
    if (node == nullptr || node->marked != 0) {
        return nullptr;
    }
    return node->data;
}

extern "C" VQ_API int lln_iterator_remove_node_move_next(void *it) {
    if (it == nullptr) {
        new_dbg_str(kTraceChannel, "lln_iterator_remove_node_move_next: iterator is NULL, return 0...\n");
        return 0;
    }
    Iterator *iter = vq::llist::iterator(it, __func__);
    if (iter == nullptr) {
        return 0;
    }
    LockGuard guard(&iter->list->lock);
    LockedNode *node = iter->current;
    if (node == nullptr) {
        return 0;
    }
    // Marked first, so that leaving it below frees it if this iterator was
    // its last holder.
    node->marked = 1;
    vq::llist::move_iterator(iter, vq::llist::first_unmarked(node->next));
    return 1;
}

// A debugging aid: written only while the thread's debug flag is set. Nodes
// are numbered from 1; removed nodes still waiting for an iterator are shown.
extern "C" VQ_API void lln_dump_list(void *list) {
    if (list == nullptr) {
        new_dbg_str(kTraceChannel, "lln_dump_list: list header is NULL, return...\n");
        return;
    }
    LockedList *l = vq::llist::locked(list, __func__);
    if (l == nullptr) {
        return;
    }
    LockGuard guard(&l->lock);
    dbg_str("number of nodes = <%d>\n", static_cast<int>(l->count));
    dbg_str("list reference count = <%d>\n", static_cast<int>(l->iterators));
    int number = 0;
    for (LockedNode *node = l->first; node != nullptr; node = node->next) {
        dbg_str("node <%d>  ", ++number);
        dbg_str("reference count = <%d>  ", static_cast<int>(node->refs));
        dbg_str("marked for delete = <%d>\n", static_cast<int>(node->marked));
        dbg_str("data address = <%" PRIXPTR ">\n", reinterpret_cast<uintptr_t>(node->data));
    }
    dbg_str("-- end of list --\n");
}
