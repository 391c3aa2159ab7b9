#pragma once
// IUnknown, the root of every COM-style interface, and a counted pointer for our own code.
//
// Interfaces here are classes of pure virtual functions whose slot order is their declaration
// order; they have no virtual destructor (it would add slots), and objects are destroyed by
// their own Release.
#include "host/com/guid.h"
#include "host/com/types.h"

#include <utility>

struct IUnknown {
    // Answers the object as the interface iid, with one reference added, or E_NOINTERFACE and
    // *object = nullptr.
    virtual HRESULT QueryInterface(REFIID iid, void** object) = 0;
    virtual ULONG AddRef() = 0;  // returns the new count (for diagnostics only)
    virtual ULONG Release() = 0; // returns the new count; the object is gone at 0

protected:
    IUnknown() = default;
    IUnknown(const IUnknown&) = default;
    IUnknown& operator=(const IUnknown&) = default;
    ~IUnknown() = default;
};

namespace host::com {

// Holds at most one reference to a COM-style object.
template <typename T> class ComPtr {
public:
    ComPtr() = default;
    // Adds a reference of its own.
    explicit ComPtr(T* object) : m_p(object) {
        if (m_p != nullptr)
            m_p->AddRef();
    }
    ComPtr(const ComPtr& other) : ComPtr(other.m_p) {}
    ComPtr(ComPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_p, other.m_p);
        return *this;
    }
    ~ComPtr() { Reset(); }

    // Takes over a reference the caller already owns (as from a factory's out argument).
    static ComPtr Adopt(T* object) {
        ComPtr result;
        result.m_p = object;
        return result;
    }

    void Reset() {
        if (T* p = std::exchange(m_p, nullptr))
            p->Release();
    }
    // The slot for a factory's out argument; releases what was held first.
    T** Put() {
        Reset();
        return &m_p;
    }
    T* Get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }

private:
    T* m_p = nullptr;
};

} // namespace host::com
