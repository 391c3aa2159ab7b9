#include "meer/gpa.h"

#include "meer/obecne.h"

#include <algorithm>
#include <cstddef>

namespace meerspace {

GpaBase::GpaBase(std::int32_t initialCapacity, std::int32_t growthIncrement)
    : increment(growthIncrement) {
    if (initialCapacity > 0)
        grow(initialCapacity);
}

GpaBase::~GpaBase() {
    delete[] data;
}

void* GpaBase::append(void* p) {
    if (count == capacity)
        grow(0);
    data[count] = p;
    ++count;
    return p;
}

void GpaBase::grow(std::int32_t newCapacity) {
    if (newCapacity == 0) {
        if (increment != 0)
            newCapacity = capacity + increment;
        else
            newCapacity = capacity + static_cast<std::int32_t>(0.1 * capacity) + 1;
    }
    if (newCapacity <= capacity)
        ERROR("gpa", __LINE__, "%s", kInternalErrorMessage);
    auto** fresh = new void*[static_cast<std::size_t>(newCapacity)];
    std::copy(data, data + count, fresh);
    std::fill(fresh + count, fresh + newCapacity, nullptr);
    delete[] data;
    data = fresh;
    capacity = newCapacity;
}

} // namespace meerspace
