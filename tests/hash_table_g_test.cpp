// The hash table: rows and hashing, duplicates, clean-up, iteration with
// removal, bad arguments, and threads racing on shared and separate keys.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/llist.h"

namespace {

std::atomic<int> g_cleaned{0};
void count_cleanup(void * /*user_data*/) { ++g_cleaned; }

// Every key reached by a full walk, with how often it was seen.
std::map<std::string, int> walk(void *table) {
    std::map<std::string, int> seen;
    void *it = slh_get_iterator(table);
    for (slh_iterator_move_first(it); !slh_iterator_is_eol(it); slh_iterator_move_next(it)) {
        ++seen[slh_iterator_get_key(it)];
    }
    slh_free_iterator(it);
    return seen;
}

class HashTable : public ::testing::Test {
protected:
    void SetUp() override {
        g_cleaned = 0;
        err_set_log_interactive(0);
        err_clear_error_stack();
    }
};

TEST_F(HashTable, OneRowTableKeepsEntriesAsOneListInOrder) {
    void *t = slh_allocate_hash_table(1);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(slh_get_size(t), 1);
    int v[4] = {0, 1, 2, 3};
    const char *keys[4] = {"d", "a", "c", "b"};
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(slh_insert_to_table(t, keys[i], &v[i]), 1);
    }
    EXPECT_EQ(slh_remove_from_table(t, "c"), 1);
    EXPECT_EQ(slh_remove_from_table(t, "c"), 0);

    std::string order;
    void *it = slh_get_iterator(t);
    EXPECT_EQ(slh_iterator_is_eol(it), 1);  // not moved yet
    for (slh_iterator_move_first(it); !slh_iterator_is_eol(it); slh_iterator_move_next(it)) {
        order += slh_iterator_get_key(it);
        order += static_cast<char>('0' + *static_cast<int *>(slh_iterator_get_user_data(it)));
    }
    slh_free_iterator(it);
    EXPECT_EQ(order, "d0a1b3");

    void *found = nullptr;
    EXPECT_EQ(slh_find_element(t, "b", &found), 1);
    EXPECT_EQ(found, &v[3]);
    EXPECT_EQ(slh_get_user_data(t, "a"), &v[1]);
    EXPECT_EQ(slh_find_element(t, "B", &found), 0);  // keys compare exactly
    EXPECT_EQ(slh_get_user_data(t, "c"), nullptr);
    EXPECT_EQ(err_get_stack_depth(), 0);  // not finding is no error
    EXPECT_EQ(slh_free_hash_table(t), 1);
}

TEST_F(HashTable, DefaultHashLeavesTheKeysCrcInTheThreadRegister) {
    void *t = slh_allocate_hash_table(13);
    slh_get_user_data(t, "123456789");
    const unsigned char none = 0;
    EXPECT_EQ(updcrc(&none, 0), 0xCBF43926u);
    slh_free_hash_table(t);
}

int32_t g_forced_hash = 0;
int32_t forced_hash(const char * /*key*/) { return g_forced_hash; }

TEST_F(HashTable, AnyHashValueLandsInARow) {
    void *t = slh_allocate_hash_table(7);
    ASSERT_EQ(slh_set_hash_cb(t, forced_hash), 1);
    const int32_t hashes[] = {INT32_MIN, INT32_MIN + 1, -1, -7, 0, 6, INT32_MAX};
    for (int32_t h : hashes) {
        g_forced_hash = h;
        std::string key = "h" + std::to_string(h);
        ASSERT_EQ(slh_insert_to_table(t, key.c_str(), nullptr), 1) << key;
        void *data = &g_forced_hash;
        EXPECT_EQ(slh_find_element(t, key.c_str(), &data), 1) << key;
        EXPECT_EQ(data, nullptr);  // NULL user data is a value like any other
    }
    EXPECT_EQ(walk(t).size(), std::size(hashes));
    slh_free_hash_table(t);
}

TEST_F(HashTable, DuplicateKeyIsRefusedAndReported) {
    void *t = slh_allocate_hash_table(5);
    int first = 1;
    int second = 2;
    ASSERT_EQ(slh_insert_to_table(t, "key", &first), 1);
    EXPECT_EQ(slh_insert_to_table(t, "key", &second), 0);
    EXPECT_EQ(err_get_stack_depth(), 1);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_HASHDUP);
    EXPECT_STREQ(err_get_error_text(0), "Failed to insert duplicate key into hash table <key>");
    EXPECT_EQ(slh_get_user_data(t, "key"), &first);
    EXPECT_EQ(walk(t), (std::map<std::string, int>{{"key", 1}}));
    slh_free_hash_table(t);
}

TEST_F(HashTable, CleanupRunsOnceForEveryEntryThatLeaves) {
    void *t = slh_allocate_hash_table(3);
    slh_set_appl_cleanup_cb(t, count_cleanup);
    for (const char *k : {"a", "b", "c", "d"}) {
        slh_insert_to_table(t, k, nullptr);
    }
    slh_remove_from_table(t, "b");
    slh_remove_from_table(t, "missing");
    EXPECT_EQ(g_cleaned, 1);
    slh_free_hash_table(t);
    EXPECT_EQ(g_cleaned, 4);
}

TEST_F(HashTable, IteratorVisitsEachEntryOnceAndRemovesAsItGoes) {
    void *t = slh_allocate_hash_table(64);  // most rows stay empty
    slh_set_appl_cleanup_cb(t, count_cleanup);
    for (int i = 0; i < 20; ++i) {
        slh_insert_to_table(t, ("k" + std::to_string(i)).c_str(), nullptr);
    }
    std::map<std::string, int> all = walk(t);
    EXPECT_EQ(all.size(), 20u);
    for (const auto &[key, times] : all) {
        EXPECT_EQ(times, 1) << key;
    }

    // Remove every other entry through the iterator; one more by key while
    // the iterator stands on it, which then reads as gone.
    void *it = slh_get_iterator(t);
    bool remove = true;
    std::string on_it;
    for (slh_iterator_move_first(it); !slh_iterator_is_eol(it); remove = !remove) {
        if (remove) {
            EXPECT_EQ(slh_iterator_remove_node_move_next(it), 1);
        } else if (on_it.empty()) {
            on_it = slh_iterator_get_key(it);
            EXPECT_EQ(slh_remove_from_table(t, on_it.c_str()), 1);
            EXPECT_EQ(slh_iterator_get_key(it), nullptr);
            EXPECT_EQ(slh_iterator_remove_node_move_next(it), 0);  // already gone
        } else {
            slh_iterator_move_next(it);
        }
    }
    EXPECT_EQ(slh_iterator_remove_node_move_next(it), 0);
    slh_free_iterator(it);
    EXPECT_EQ(g_cleaned, 11);
    EXPECT_EQ(walk(t).size(), 9u);
    slh_free_hash_table(t);
    EXPECT_EQ(g_cleaned, 20);
}

TEST_F(HashTable, BadArgumentsFailWithAnError) {
    EXPECT_EQ(slh_allocate_hash_table(0), nullptr);
    EXPECT_EQ(slh_allocate_hash_table(-3), nullptr);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    void *t = slh_allocate_hash_table(2);
    void *data = nullptr;
    err_clear_error_stack();
    EXPECT_EQ(slh_insert_to_table(t, nullptr, nullptr), 0);
    EXPECT_EQ(slh_insert_to_table(nullptr, "k", nullptr), 0);
    EXPECT_EQ(slh_find_element(t, "k", nullptr), 0);
    EXPECT_EQ(slh_remove_from_table(t, nullptr), 0);
    EXPECT_EQ(slh_lock_row(nullptr, "k"), 0);
    EXPECT_EQ(slh_find_element(nullptr, "k", &data), 0);
    EXPECT_EQ(err_get_stack_depth(), 6);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_EQ(slh_get_iterator(nullptr), nullptr);
    EXPECT_EQ(slh_iterator_is_eol(nullptr), 1);
    EXPECT_EQ(slh_iterator_get_key(nullptr), nullptr);
    EXPECT_EQ(slh_free_hash_table(nullptr), 0);
    slh_free_hash_table(t);
}

// Every function given a handle of the wrong kind returns its failure result
// and leaves PARAMS naming itself and the argument.
TEST_F(HashTable, AHandleOfAnotherKindIsRefusedByEveryFunction) {
    void *t = slh_allocate_hash_table(3);
    ASSERT_NE(t, nullptr);
    int v = 5;
    ASSERT_EQ(slh_insert_to_table(t, "k", &v), 1);
    void *it = slh_get_iterator(t);
    void *list = lln_init_list();  // a handle of the lists' family
    ASSERT_NE(it, nullptr);
    ASSERT_NE(list, nullptr);
    void *data = nullptr;
    vq::test::expect_refused({
        {"slh_free_hash_table", "table", [&] { return slh_free_hash_table(it) == 0; }},
        {"slh_insert_to_table", "table", [&] { return slh_insert_to_table(list, "k", &v) == 0; }},
        {"slh_remove_from_table", "table", [&] { return slh_remove_from_table(it, "k") == 0; }},
        {"slh_find_element", "table", [&] { return slh_find_element(list, "k", &data) == 0; }},
        {"slh_get_user_data", "table", [&] { return slh_get_user_data(it, "k") == nullptr; }},
        {"slh_lock_row", "table", [&] { return slh_lock_row(list, "k") == 0; }},
        {"slh_release_row", "table", [&] { return slh_release_row(it, "k") == 0; }},
        {"slh_get_size", "table", [&] { return slh_get_size(list) == 0; }},
        {"slh_set_appl_cleanup_cb", "table", [&] { return slh_set_appl_cleanup_cb(it, count_cleanup) == 0; }},
        {"slh_set_hash_cb", "table", [&] { return slh_set_hash_cb(list, nullptr) == 0; }},
        {"slh_get_iterator", "table", [&] { return slh_get_iterator(it) == nullptr; }},
        {"slh_free_iterator", "iterator", [&] { return slh_free_iterator(t) == 0; }},
        {"slh_iterator_move_first", "iterator", [&] { return slh_iterator_move_first(list) == 0; }},
        {"slh_iterator_move_next", "iterator", [&] { return slh_iterator_move_next(t) == 0; }},
        {"slh_iterator_remove_node_move_next", "iterator",
         [&] { return slh_iterator_remove_node_move_next(t) == 0; }},
        {"slh_iterator_is_eol", "iterator", [&] { return slh_iterator_is_eol(list) == 1; }},
        {"slh_iterator_get_key", "iterator", [&] { return slh_iterator_get_key(t) == nullptr; }},
        {"slh_iterator_get_user_data", "iterator",
         [&] { return slh_iterator_get_user_data(list) == nullptr; }},
    });

    // The table, its iterator and the list are as they were.
    EXPECT_EQ(lln_get_count(list), 0u);
    EXPECT_EQ(slh_get_user_data(t, "k"), &v);
    EXPECT_EQ(slh_iterator_move_first(it), 1);
    EXPECT_STREQ(slh_iterator_get_key(it), "k");
    EXPECT_EQ(slh_free_iterator(it), 1);
    EXPECT_EQ(slh_free_hash_table(t), 1);
    EXPECT_EQ(g_cleaned, 0);  // the clean-up callback was never installed
    lln_dispose_list(list);
}

TEST_F(HashTable, AFreedHandleIsRefused) {
    VQ_SKIP_UNDER_SANITIZER();
    void *t = slh_allocate_hash_table(2);
    void *it = slh_get_iterator(t);
    ASSERT_EQ(slh_free_iterator(it), 1);
    EXPECT_EQ(slh_iterator_move_first(it), 0);
    EXPECT_TRUE(vq::test::refused("slh_iterator_move_first", "iterator"));
    ASSERT_EQ(slh_free_hash_table(t), 1);
    EXPECT_EQ(slh_insert_to_table(t, "k", nullptr), 0);
    EXPECT_TRUE(vq::test::refused("slh_insert_to_table", "table"));
}

// Threads count through user data reached by find-then-change under the row
// lock; a row lock that did not exclude would lose increments (and tsan
// reports the race).
TEST_F(HashTable, LockedRowMakesFindThenChangeAtomic) {
    void *t = slh_allocate_hash_table(4);
    std::vector<int> counters(3, 0);
    const char *keys[3] = {"alpha", "beta", "gamma"};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int id = 0; id < 4; ++id) {
        threads.emplace_back([&] {
            for (int n = 0; n < 300; ++n) {
                int k = n % 3;
                EXPECT_EQ(slh_lock_row(t, keys[k]), 1);
                if (auto *c = static_cast<int *>(slh_get_user_data(t, keys[k]))) {
                    ++*c;
                } else {
                    ++counters[k];
                    EXPECT_EQ(slh_insert_to_table(t, keys[k], &counters[k]), 1);
                }
                EXPECT_EQ(slh_release_row(t, keys[k]), 1);
            }
        });
    }
    for (auto &th : threads) {
        th.join();
    }
    EXPECT_EQ(counters, std::vector<int>(3, 400));
    slh_free_hash_table(t);
}

// Threads insert separate keys and race to insert the same shared keys,
// then race to remove them, while a walker runs alongside. Each shared key
// must go in exactly once and come out exactly once.
TEST_F(HashTable, ThreadsOnSharedAndSeparateKeys) {
    constexpr int kThreads = 4;
    constexpr int kKeys = 200;
    void *t = slh_allocate_hash_table(31);
    slh_set_appl_cleanup_cb(t, count_cleanup);
    std::atomic<int> inserted{0};
    std::atomic<int> removed{0};
    std::atomic<bool> done{false};
    std::thread walker([&] {
        while (!done) {
            void *it = slh_get_iterator(t);
            for (slh_iterator_move_first(it); !slh_iterator_is_eol(it); slh_iterator_move_next(it)) {
                slh_iterator_get_user_data(it);
            }
            slh_free_iterator(it);
        }
    });
    auto run = [&](auto &&body) {
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int id = 0; id < kThreads; ++id) {
            threads.emplace_back([&, id] {
                for (int n = 0; n < kKeys; ++n) {
                    body("own-" + std::to_string(id) + "-" + std::to_string(n), "shared-" + std::to_string(n),
                         n);
                }
            });
        }
        for (auto &th : threads) {
            th.join();
        }
    };

    run([&](const std::string &own, const std::string &shared, int) {
        EXPECT_EQ(slh_insert_to_table(t, own.c_str(), &done), 1);
        inserted += slh_insert_to_table(t, shared.c_str(), nullptr);
        EXPECT_EQ(slh_get_user_data(t, own.c_str()), &done);
    });
    EXPECT_EQ(inserted, kKeys);
    std::map<std::string, int> all = walk(t);
    EXPECT_EQ(all.size(), static_cast<size_t>((kThreads + 1) * kKeys));
    EXPECT_EQ(all["shared-0"], 1);

    run([&](const std::string &own, const std::string &shared, int n) {
        removed += slh_remove_from_table(t, shared.c_str());
        if (n % 2 == 0) {
            EXPECT_EQ(slh_remove_from_table(t, own.c_str()), 1);
        }
    });
    done = true;
    walker.join();
    EXPECT_EQ(removed, kKeys);
    std::map<std::string, int> left = walk(t);
    EXPECT_EQ(left.size(), static_cast<size_t>(kThreads * kKeys / 2));
    EXPECT_EQ(left.count("own-3-199"), 1u);
    EXPECT_EQ(g_cleaned, kKeys + kThreads * kKeys / 2);
    slh_free_hash_table(t);
}

}  // namespace
