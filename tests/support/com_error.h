#pragma once
// The HRESULT of the _com_error an action raises; the test fails when it raises nothing or
// something else.
#include "host/com/com.h"

#include <gtest/gtest.h>

#include <functional>

namespace slabadapt::test {

inline HRESULT ComErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const _com_error& error) {
        return error.Error();
    } catch (...) {
        ADD_FAILURE() << "raised something other than _com_error";
        return S_OK;
    }
    ADD_FAILURE() << "raised nothing";
    return S_OK;
}

} // namespace slabadapt::test
