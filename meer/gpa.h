#pragma once
// A growable array of pointers to engine objects. It never shrinks and never frees the
// objects it points to; only its own pointer array.
#include <cstdint>

namespace meerspace {

// The untyped list; Gpa<T> below gives it a type.
class GpaBase {
public:
    std::int32_t count = 0;     // pointers stored
    std::int32_t capacity = 0;  // pointers allocated
    std::int32_t increment = 0; // growth step; 0 = automatic (capacity / 10 + 1)
    void** data = nullptr;

    explicit GpaBase(std::int32_t initialCapacity = 0, std::int32_t growthIncrement = 0);
    GpaBase(const GpaBase&) = delete;
    GpaBase& operator=(const GpaBase&) = delete;
    ~GpaBase();

    // Stores p at the end (growing first when full) and returns p.
    void* append(void* p);
    // Grows to newCapacity, or with 0 by the increment (automatic: capacity / 10 + 1).
    // Fatal (general message) when the result is not greater than the capacity.
    void grow(std::int32_t newCapacity = 0);
};

template <typename T> class Gpa : public GpaBase {
public:
    using GpaBase::GpaBase;

    T* append(T* p) { return static_cast<T*>(GpaBase::append(p)); }
    T* operator[](std::int32_t i) const { return static_cast<T*>(data[i]); }
};

} // namespace meerspace
