// What the library's open-addressing tables (linear probing over a
// power-of-two array) share: removal without tombstones.
#pragma once

#include <cstddef>
#include <vector>

namespace vq::internal {

// Frees slots[hole] and shifts back the entries after it that probed past
// it, so that lookups never meet a gap inside a probe run. is_used(slot)
// tells a used slot; home_of(slot) gives the slot index where its probe
// started. Returns nothing: the caller keeps its own count.
template <typename Slot, typename IsUsed, typename HomeOf>
void remove_by_shifting_back(std::vector<Slot> &slots, size_t hole, IsUsed is_used, HomeOf home_of) {
    const size_t mask = slots.size() - 1;
    for (size_t next = (hole + 1) & mask; is_used(slots[next]); next = (next + 1) & mask) {
        size_t home = home_of(slots[next]);
        // The entry may move into the hole unless its home lies cyclically
        // after the hole and at or before its own slot.
        bool stays = hole <= next ? (home > hole && home <= next) : (home > hole || home <= next);
        if (!stays) {
            slots[hole] = slots[next];
            hole = next;
        }
    }
    slots[hole] = Slot{};
}

}  // namespace vq::internal
