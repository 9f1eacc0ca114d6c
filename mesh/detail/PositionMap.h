#pragma once
// A map from an exact position to a vertex number, for joining vertices.
//
// Positions are equal when their floats compare equal, so +0 and -0 are one
// key; NaNs of identical bits are one key too. Open addressing over the
// positions' bit patterns keeps a lookup to one or two cache lines, which is
// what makes joining millions of STL corners cheap.

#include "math/Vector.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace tez_detail {

class PositionMap
{
public:
    static constexpr uint32_t kNone = 0xffffffffu;

    explicit PositionMap(size_t expected = 1024) { Rehash(CapacityFor(expected)); }

    // The number stored for p, or inserts `next` and returns kNone.
    uint32_t FindOrInsert(TezVector3<float> const& p, uint32_t next)
    {
        Key const key = MakeKey(p);
        size_t slot = Hash(key) & m_mask;
        for (;;) {
            Entry& e = m_entries[slot];
            if (e.value == kNone) {
                e.key = key;
                e.value = next;
                if (++m_size * 2 > m_entries.size())
                    Rehash(m_entries.size() * 2);
                return kNone;
            }
            if (e.key.x == key.x && e.key.y == key.y && e.key.z == key.z)
                return e.value;
            slot = (slot + 1) & m_mask;
        }
    }

    size_t Size() const { return m_size; }

private:
    struct Key
    {
        uint32_t x, y, z;
    };
    struct Entry
    {
        Key key;
        uint32_t value;
    };

    static uint32_t Bits(float f)
    {
        f += 0.0f; // -0 becomes +0
        uint32_t u;
        std::memcpy(&u, &f, 4);
        return u;
    }
    static Key MakeKey(TezVector3<float> const& p) { return Key{Bits(p.x), Bits(p.y), Bits(p.z)}; }
    static size_t Hash(Key const& k)
    {
        uint64_t h = (uint64_t(k.x) * 0x9E3779B97F4A7C15ull) ^ (uint64_t(k.y) * 0xC2B2AE3D27D4EB4Full) ^
                     (uint64_t(k.z) * 0x165667B19E3779F9ull);
        h ^= h >> 29;
        h *= 0xBF58476D1CE4E5B9ull;
        return size_t(h ^ (h >> 32));
    }
    static size_t CapacityFor(size_t expected)
    {
        size_t capacity = 64;
        while (capacity < expected * 2)
            capacity *= 2;
        return capacity;
    }
    void Rehash(size_t capacity)
    {
        std::vector<Entry> old;
        old.swap(m_entries);
        m_entries.assign(capacity, Entry{Key{0, 0, 0}, kNone});
        m_mask = capacity - 1;
        for (Entry const& e : old) {
            if (e.value == kNone)
                continue;
            size_t slot = Hash(e.key) & m_mask;
            while (m_entries[slot].value != kNone)
                slot = (slot + 1) & m_mask;
            m_entries[slot] = e;
        }
    }

    std::vector<Entry> m_entries;
    size_t m_mask = 0;
    size_t m_size = 0;
};

} // namespace tez_detail
