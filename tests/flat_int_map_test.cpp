// The flat integer map behind the parameter index, against std::map through
// long runs of random inserts, updates and removals: removals in the middle
// of probe runs must leave every other key findable.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>

#include "../vq_glob/internal/flat_int_map.h"

namespace {

using Map = vq::internal::FlatIntMap<-1>;

void expect_same(Map &map, const std::map<int32_t, int32_t> &model, int32_t key_range) {
    for (int32_t key = -1; key < key_range; ++key) {
        auto it = model.find(key);
        const int32_t *value = map.find(key);
        ASSERT_EQ(value != nullptr, it != model.end()) << key;
        if (value != nullptr) {
            ASSERT_EQ(*value, it->second) << key;
        }
    }
}

TEST(FlatIntMap, AgreesWithAModelThroughGrowthAndRemovals) {
    std::mt19937 random(11);  // NOLINT(cert-msc32-c,cert-msc51-cpp): a fixed seed, so a failure reproduces
    for (int32_t key_range : {50, 3000}) {
        Map map;
        std::map<int32_t, int32_t> model;
        for (int step = 0; step < 60000; ++step) {
            auto key = static_cast<int32_t>(random() % static_cast<uint32_t>(key_range));
            if (random() % 5 < 3) {
                bool inserted = false;
                int32_t &value = map.try_emplace(key, step, &inserted);
                ASSERT_EQ(inserted, model.count(key) == 0);
                value = step;
                model[key] = step;
            } else {
                ASSERT_EQ(map.erase(key), model.erase(key) == 1);
            }
            if (step % 5000 == 0) {
                expect_same(map, model, key_range);
            }
        }
        expect_same(map, model, key_range);
    }
}

TEST(FlatIntMap, ReservedKeyIsNeverStoredAndReserveKeepsEntries) {
    Map map;
    EXPECT_EQ(map.find(-1), nullptr);
    EXPECT_FALSE(map.erase(-1));
    bool inserted = false;
    for (int32_t key = 0; key < 100; ++key) {
        map.try_emplace(key * 4096, key, &inserted);  // keys far apart, same low bits
    }
    map.reserve(10000);
    for (int32_t key = 0; key < 100; ++key) {
        ASSERT_NE(map.find(key * 4096), nullptr);
        EXPECT_EQ(*map.find(key * 4096), key);
    }
    EXPECT_EQ(map.find(-1), nullptr);
}

}  // namespace
