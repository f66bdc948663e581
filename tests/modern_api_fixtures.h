// Helpers of the modern C interface's tests: a task as a table row (open,
// run, close, and the legacy export it must equal), outputs as raw bytes
// for bit-for-bit comparison.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "meridian/meridian_api.h"

namespace meridian::testing {

/// The bytes of an array, for comparisons to the last bit.
template <typename T>
std::string bytesOf(const std::vector<T>& values) {
    return std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

/// One task of the modern interface beside its legacy export.
struct ModernTask {
    std::string name;
    std::function<void*()> open;  ///< a new handle, or null
    std::function<void(void*)> close;
    std::function<meridian_status(void*, const std::vector<float>&, std::string&)> run;
    std::function<std::string(const std::vector<float>&)> legacy;  ///< the export's result bytes
    std::function<const char*(void*)> lastError;
};

/// Runs `body` with standard output captured and returns what it printed.
template <typename Body>
std::string printedBy(Body&& body) {
    ::testing::internal::CaptureStdout();
    body();
    return ::testing::internal::GetCapturedStdout();
}

/// The three checks every task gets: it equals its legacy export to the
/// bit, prints nothing, and two of its handles live side by side (closing
/// one leaves the other working).
inline void checkTask(const ModernTask& task, const std::vector<float>& head) {
    SCOPED_TRACE(task.name);
    const std::string expected = task.legacy(head);
    ASSERT_FALSE(expected.empty());
    void* first = nullptr;
    void* second = nullptr;
    std::string fromFirst, fromSecond, afterClose;
    const std::string printed = printedBy([&] {
        first = task.open();
        second = task.open();
        if (first == nullptr || second == nullptr) return;
        EXPECT_EQ(task.run(first, head, fromFirst), MERIDIAN_OK) << task.lastError(first);
        EXPECT_EQ(task.run(second, head, fromSecond), MERIDIAN_OK) << task.lastError(second);
        task.close(first);
        EXPECT_EQ(task.run(second, head, afterClose), MERIDIAN_OK) << task.lastError(second);
        EXPECT_STREQ(task.lastError(second), "");
        task.close(second);
    });
    ASSERT_NE(first, nullptr) << meridian_open_error();
    ASSERT_NE(second, nullptr) << meridian_open_error();
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(fromFirst == expected) << "differs from the legacy export";
    EXPECT_TRUE(fromSecond == expected);
    EXPECT_TRUE(afterClose == expected);
}

}  // namespace meridian::testing
