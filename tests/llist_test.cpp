// Plain-list cursor walks, locked-list node lifetime under iterators, dispose,
// failure paths and concurrent use of one locked list.
#include <gtest/gtest.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/llist.h"

namespace {

// Takes n steps of a plain-list cursor walk: each node's digit, '-' for NULL.
std::string walk(void *list, ll_node *(*step)(void *), int n) {
    std::string seen;
    while (n-- > 0) {
        ll_node *node = step(list);
        seen += node != nullptr ? static_cast<char>('0' + *static_cast<int *>(node->data)) : '-';
    }
    return seen;
}

// Free callback recording how often it ran and what it was given last.
int g_freed = 0;
void *g_last_freed = nullptr;
void count_free(void *data) {
    ++g_freed;
    g_last_freed = data;
}

// A locked list holding values_ in order, with the counting callback.
class LockedListTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_freed = 0;
        g_last_freed = nullptr;
        list_ = lln_init_list();
        ASSERT_NE(list_, nullptr);
        lln_set_cb(list_, count_free);
        for (int &v : values_) {
            ASSERT_EQ(lln_add_node_last(list_, &v), &v);
        }
    }
    void TearDown() override { lln_dispose_list(list_); }

    // A new iterator standing on the n-th node (from 0).
    void *iterator_at(int n) {
        void *it = lln_get_list_iterator(list_);
        lln_iterator_move_first(it);
        while (n-- > 0) {
            lln_iterator_move_next(it);
        }
        return it;
    }

    void *list_ = nullptr;  // set to null by a test that releases it
    int values_[3] = {10, 20, 30};
};

TEST(PlainList, CursorWalksBothWaysThenRestarts) {
    void *list = ll_init_list();
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(walk(list, ll_get_next_node, 1), "-");
    EXPECT_EQ(walk(list, ll_get_prev_node, 1), "-");
    int v[3] = {1, 2, 3};
    for (int &x : v) {
        ASSERT_NE(ll_add_node_last(list, &x), nullptr);
    }
    EXPECT_EQ(walk(list, ll_get_next_node, 8), "123-123-");
    EXPECT_EQ(walk(list, ll_get_prev_node, 8), "321-321-");
    EXPECT_EQ(walk(list, ll_get_last_node, 1), "3");
    EXPECT_EQ(walk(list, ll_get_prev_node, 1), "2");
    EXPECT_EQ(walk(list, ll_get_first_node, 1), "1");
    EXPECT_EQ(walk(list, ll_get_next_node, 1), "2");
    EXPECT_EQ(ll_get_count(list), 3);
    ll_dispose_list(&list);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(ll_add_node_last(nullptr, &v[0]), nullptr);
}

TEST(PlainList, FreeingNodesKeepsTheWalkGoing) {
    void *list = ll_init_list();
    void *other = ll_init_list();
    int v[4] = {1, 2, 3, 4};
    for (int &x : v) {
        ll_add_node_last(list, &x);
    }
    ll_node *foreign = ll_add_node_last(other, &v[0]);

    ll_get_next_node(list);
    ll_free_node(list, ll_get_next_node(list));  // the cursor's node
    EXPECT_EQ(walk(list, ll_get_next_node, 3), "34-");
    ll_free_node(list, ll_get_first_node(list));
    EXPECT_EQ(walk(list, ll_get_next_node, 3), "34-");
    ll_free_node(list, ll_get_last_node(list));
    EXPECT_EQ(walk(list, ll_get_next_node, 3), "-3-");
    EXPECT_EQ(walk(list, ll_get_prev_node, 2), "3-");

    ll_free_node(list, foreign);  // not this list's node: ignored
    EXPECT_EQ(ll_get_count(list), 1);
    EXPECT_EQ(ll_get_first_node(other), foreign);
    ll_dispose_list(&list);
    ll_dispose_list(&other);
}

TEST_F(LockedListTest, NodeRemovedUnderAnotherIteratorIsFreedWhenItLeaves) {
    void *stays = iterator_at(1);
    void *remover = iterator_at(1);
    EXPECT_EQ(lln_iterator_remove_node_move_next(remover), 1);
    EXPECT_EQ(lln_iterator_get_data(remover), &values_[2]);

    // Marked: unreadable, skipped by walks, but still counted and not yet freed.
    EXPECT_EQ(lln_iterator_get_data(stays), nullptr);
    EXPECT_EQ(g_freed, 0);
    EXPECT_EQ(lln_get_count(list_), 3u);
    EXPECT_EQ(lln_free_node(list_, &values_[1]), 0);
    void *walker = iterator_at(1);
    EXPECT_EQ(lln_iterator_get_data(walker), &values_[2]);

    lln_iterator_move_next(stays);
    EXPECT_EQ(g_freed, 1);
    EXPECT_EQ(g_last_freed, &values_[1]);
    EXPECT_EQ(lln_get_count(list_), 2u);

    // lln_free_node defers the same way, until the last holder lets go.
    EXPECT_EQ(lln_free_node(list_, &values_[2]), 1);
    lln_free_list_iterator(stays);
    lln_free_list_iterator(remover);
    EXPECT_EQ(g_freed, 1);
    EXPECT_EQ(lln_iterator_remove_node_move_next(walker), 1);
    EXPECT_EQ(g_freed, 2);
    EXPECT_EQ(g_last_freed, &values_[2]);
    EXPECT_EQ(lln_iterator_end(walker), 1);
    EXPECT_EQ(lln_iterator_remove_node_move_next(walker), 0);
    lln_free_list_iterator(walker);
}

TEST_F(LockedListTest, FreeDataFlagFreesDataAndCallbackGetsNull) {
    void *block = std::malloc(16);
    lln_add_node_last(list_, block);
    lln_set_free_data_flag(list_, 1);
    EXPECT_EQ(lln_free_node(list_, block), 1);  // the leak checker sees it freed
    EXPECT_EQ(g_freed, 1);
    EXPECT_EQ(g_last_freed, nullptr);
    lln_set_free_data_flag(list_, 0);
    EXPECT_EQ(lln_free_node(list_, &values_[0]), 1);
    EXPECT_EQ(g_last_freed, &values_[0]);
}

TEST_F(LockedListTest, DisposeWithOpenIteratorKeepsItsNodeAndHeader) {
    void *it = iterator_at(1);
    lln_dispose_list(list_);
    EXPECT_EQ(g_freed, 2);  // the nodes nobody stands on
    EXPECT_EQ(lln_get_count(list_), 1u);
    int extra = 0;
    EXPECT_EQ(lln_add_node_last(list_, &extra), nullptr);
    EXPECT_EQ(lln_get_list_iterator(list_), nullptr);
    EXPECT_EQ(lln_iterator_get_data(it), nullptr);
    lln_iterator_move_next(it);
    EXPECT_EQ(g_freed, 3);
    EXPECT_EQ(g_last_freed, &values_[1]);
    lln_free_list_iterator(it);  // releases the header: checked by the leak checker
    list_ = nullptr;
}

TEST_F(LockedListTest, DisposeInsideLockBracketReleasesAtLastUnlock) {
    ASSERT_EQ(lln_lock_list(list_), 1);
    ASSERT_EQ(lln_lock_list(list_), 1);  // re-entrant for its owner
    lln_dispose_list(list_);
    EXPECT_EQ(g_freed, 3);
    EXPECT_EQ(lln_unlock_list(list_), 1);
    EXPECT_EQ(lln_get_list_iterator(list_), nullptr);  // still there, still disposed
    EXPECT_EQ(lln_unlock_list(list_), 1);
    list_ = nullptr;
}

TEST_F(LockedListTest, NullArgumentsFailCleanlyWithTheirTraceLines) {
    err_clear_error_stack();
    EXPECT_EQ(lln_lock_list(nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(lln_unlock_list(nullptr), 0);
    EXPECT_NE(std::string(err_get_error_msg()).find("lln_unlock_list"), std::string::npos);
    err_clear_error_stack();

    EXPECT_EQ(lln_get_list_iterator(nullptr), nullptr);
    EXPECT_EQ(lln_iterator_end(nullptr), 1);
    EXPECT_EQ(lln_iterator_remove_node_move_next(nullptr), 0);
    EXPECT_EQ(err_get_stack_depth(), 0);  // only lock/unlock report on the stack

    // The failure lines and the dump, as written to the trace output.
    void *it = iterator_at(2);
    std::FILE *out = std::tmpfile();
    ASSERT_NE(out, nullptr);
    dbg_set_debug_output(out);
    dbg_set_debug(1);
    EXPECT_EQ(lln_add_node_last(list_, nullptr), nullptr);
    lln_set_cb(nullptr, nullptr);
    EXPECT_EQ(lln_get_count(nullptr), 0u);
    lln_free_node(list_, &values_[2]);
    lln_dump_list(list_);
    dbg_set_debug(0);
    dbg_set_debug_output(nullptr);
    std::string text(4096, '\0');
    std::rewind(out);
    text.resize(std::fread(text.data(), 1, text.size(), out));
    std::fclose(out);
    lln_free_list_iterator(it);

    std::string nodes;  // the third node is removed but held by the iterator
    for (int i = 0; i < 3; ++i) {
        char line[160];
        std::snprintf(line, sizeof line,
                      "node <%d>  reference count = <%d>  marked for delete = <%d>\n%s<%" PRIXPTR ">\n",
                      i + 1, i == 2, i == 2, "data address = ", reinterpret_cast<uintptr_t>(&values_[i]));
        nodes += line;
    }
    EXPECT_EQ(text,
              "lln_add_node_last: data is NULL, return...\n"
              "lln_set_cb: list header is NULL, return...\n"
              "lln_get_count: list header is NULL, return 0...\n"
              "number of nodes = <3>\nlist reference count = <1>\n" +
                  nodes + "-- end of list --\n");
}

TEST(ListHandles, AHandleOfAnotherKindIsRefusedByEveryFunction) {
    void *plain = ll_init_list();
    void *locked = lln_init_list();
    ASSERT_NE(plain, nullptr);
    ASSERT_NE(locked, nullptr);
    int v = 7;
    ll_node *node = ll_add_node_last(plain, &v);
    ASSERT_NE(node, nullptr);
    ASSERT_EQ(lln_add_node_last(locked, &v), &v);
    void *it = lln_get_list_iterator(locked);
    ASSERT_NE(it, nullptr);
    void *alias = locked;

    vq::test::expect_refused({
        // the plain list's functions given a locked list
        {"ll_add_node_last", "list", [&] { return ll_add_node_last(locked, &v) == nullptr; }},
        {"ll_free_node", "list", [&] { return ll_free_node(locked, node), true; }},
        {"ll_get_first_node", "list", [&] { return ll_get_first_node(locked) == nullptr; }},
        {"ll_get_last_node", "list", [&] { return ll_get_last_node(it) == nullptr; }},
        {"ll_get_next_node", "list", [&] { return ll_get_next_node(locked) == nullptr; }},
        {"ll_get_prev_node", "list", [&] { return ll_get_prev_node(locked) == nullptr; }},
        {"ll_get_count", "list", [&] { return ll_get_count(locked) == 0; }},
        {"ll_dispose_list", "list", [&] { return ll_dispose_list(&alias), alias == locked; }},
        // the locked list's functions given a plain list or an iterator
        {"lln_set_cb", "list", [&] { return lln_set_cb(plain, nullptr), true; }},
        {"lln_set_free_data_flag", "list", [&] { return lln_set_free_data_flag(plain, 1), true; }},
        {"lln_add_node_last", "list", [&] { return lln_add_node_last(plain, &v) == nullptr; }},
        {"lln_free_node", "list", [&] { return lln_free_node(it, &v) == 0; }},
        {"lln_dispose_list", "list", [&] { return lln_dispose_list(plain), true; }},
        {"lln_lock_list", "list", [&] { return lln_lock_list(it) == 0; }},
        {"lln_unlock_list", "list", [&] { return lln_unlock_list(plain) == 0; }},
        {"lln_get_count", "list", [&] { return lln_get_count(it) == 0; }},
        {"lln_get_list_iterator", "list", [&] { return lln_get_list_iterator(plain) == nullptr; }},
        {"lln_dump_list", "list", [&] { return lln_dump_list(it), true; }},
        // the iterator's functions given a list
        {"lln_free_list_iterator", "it", [&] { return lln_free_list_iterator(locked) == 0; }},
        {"lln_iterator_move_first", "it", [&] { return lln_iterator_move_first(locked), true; }},
        {"lln_iterator_move_next", "it", [&] { return lln_iterator_move_next(plain), true; }},
        {"lln_iterator_end", "it", [&] { return lln_iterator_end(locked) == 1; }},
        {"lln_iterator_get_data", "it", [&] { return lln_iterator_get_data(locked) == nullptr; }},
        {"lln_iterator_remove_node_move_next", "it",
         [&] { return lln_iterator_remove_node_move_next(plain) == 0; }},
    });

    // Nothing was touched: both lists and the iterator work on.
    EXPECT_EQ(ll_get_count(plain), 1);
    EXPECT_EQ(ll_get_first_node(plain), node);
    EXPECT_EQ(lln_get_count(locked), 1u);
    lln_iterator_move_first(it);
    EXPECT_EQ(lln_iterator_get_data(it), &v);
    EXPECT_EQ(lln_free_list_iterator(it), 1);
    lln_dispose_list(locked);
    ll_dispose_list(&plain);
    EXPECT_EQ(plain, nullptr);
}

TEST(ListHandles, AFreedHandleIsRefused) {
    VQ_SKIP_UNDER_SANITIZER();
    void *plain = ll_init_list();
    void *stale_plain = plain;
    ll_dispose_list(&plain);
    err_clear_error_stack();
    EXPECT_EQ(ll_get_count(stale_plain), 0);
    EXPECT_TRUE(vq::test::refused("ll_get_count", "list"));

    void *locked = lln_init_list();
    void *it = lln_get_list_iterator(locked);
    ASSERT_EQ(lln_free_list_iterator(it), 1);
    EXPECT_EQ(lln_iterator_end(it), 1);
    EXPECT_TRUE(vq::test::refused("lln_iterator_end", "it"));
    lln_dispose_list(locked);  // no iterator left: released at once
    EXPECT_EQ(lln_lock_list(locked), 0);
    EXPECT_TRUE(vq::test::refused("lln_lock_list", "list"));
}

// Items are malloc'd ints holding their index; the callback counts and frees them.
constexpr int kPerAppender = 3000;
constexpr int kAppenders = 2;
std::atomic<int> g_releases[kPerAppender * kAppenders];
void release_item(void *data) {
    g_releases[*static_cast<int *>(data)].fetch_add(1);
    std::free(data);
}

TEST(LockedListConcurrency, AppendIterateRemoveFromSeveralThreads) {
    void *list = lln_init_list();
    ASSERT_NE(list, nullptr);
    lln_set_cb(list, release_item);
    std::atomic<int> appending{kAppenders}, bad_reads{0}, bracket_failures{0};
    std::vector<std::thread> threads;
    for (int a = 0; a < kAppenders; ++a) {
        threads.emplace_back([&, a] {
            for (int i = 0; i < kPerAppender; ++i) {
                int *item = static_cast<int *>(std::malloc(sizeof(int)));
                *item = a * kPerAppender + i;
                lln_lock_list(list);  // count, add, count again as one step
                uint32_t before = lln_get_count(list);
                lln_add_node_last(list, item);
                bracket_failures += lln_get_count(list) != before + 1;
                lln_unlock_list(list);
            }
            --appending;
        });
    }
    // Three walkers: one removes through its iterator, one by data pointer,
    // one reads every item it stands on (which must still be alive).
    for (int role = 0; role < 3; ++role) {
        threads.emplace_back([&, role] {
            for (bool last_pass = false; !last_pass;) {
                last_pass = appending.load() == 0;
                void *it = lln_get_list_iterator(list);
                lln_iterator_move_first(it);
                for (int step = 0; !lln_iterator_end(it); ++step) {
                    auto *item = static_cast<int *>(lln_iterator_get_data(it));
                    if (item != nullptr && (*item < 0 || *item >= kPerAppender * kAppenders)) {
                        ++bad_reads;
                    }
                    if (role == 0 && step % 2 == 0) {
                        lln_iterator_remove_node_move_next(it);
                        continue;
                    }
                    if (role == 1 && item != nullptr && step % 3 == 0) {
                        lln_free_node(list, item);  // safe: this iterator holds the node
                    }
                    lln_iterator_move_next(it);
                }
                lln_free_list_iterator(it);
            }
        });
    }
    for (auto &t : threads) {
        t.join();
    }
    EXPECT_EQ(bad_reads.load(), 0);
    EXPECT_EQ(bracket_failures.load(), 0);
    lln_dispose_list(list);
    for (int i = 0; i < kPerAppender * kAppenders; ++i) {
        ASSERT_EQ(g_releases[i].load(), 1) << "item " << i;
    }
}

}  // namespace
