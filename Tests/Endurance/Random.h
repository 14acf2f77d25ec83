// Numbers that a seed determines, on every machine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace moxel::endurance {

class Random {
  public:
    /// Series of different numbers have nothing to do with each other.
    Random(uint64_t seed, uint64_t series)
        : state_(seed * 0x9E3779B97F4A7C15 ^ (series + 1) * 0xD1B54A32D192ED03) {
        (void)next();
    }

    [[nodiscard]] uint64_t next() {
        state_ += 0x9E3779B97F4A7C15;
        uint64_t number = state_;
        number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9;
        number = (number ^ number >> 27) * 0x94D049BB133111EB;
        return number ^ number >> 31;
    }
    /// From 0 to `limit` - 1.
    [[nodiscard]] uint64_t below(uint64_t limit) { return next() % limit; }
    [[nodiscard]] bool oneIn(uint64_t limit) { return below(limit) == 0; }
    template <class Item, size_t count>
    [[nodiscard]] const Item &pick(const Item (&items)[count]) {
        return items[below(count)];
    }
    /// As likely below 10 as from 10 to 100, or from 100 to 1,000.
    [[nodiscard]] uint64_t spread(int decades) {
        uint64_t scale = 10;
        for (uint64_t decade = below(static_cast<uint64_t>(decades)); decade > 0; --decade)
            scale *= 10;
        return below(scale);
    }

  private:
    uint64_t state_;
};

} // namespace moxel::endurance
