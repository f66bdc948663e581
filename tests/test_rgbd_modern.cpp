// The modern frame-selection handle with the provider double: the same
// outcome and angles as the legacy exports for the same frames, handles
// that keep their own buckets, and an empty bucket as a status.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "meridian/meridian_api.h"
#include "rgbd_fixtures.h"

namespace {

using meridian::testing::faceAt;
using meridian::testing::FrameSelectionExports;
using meridian::testing::ProviderDouble;

constexpr int kCols = 640, kRows = 480;

TEST(RgbdModern, MatchesTheLegacyExportsAndKeepsBucketsPerHandle) {
    FrameSelectionExports legacy(MERIDIAN_LIBRARY_BESIDE_DOUBLE, MERIDIAN_DOUBLE_PROVIDER_PATH,
                                 kCols, kRows);
    ASSERT_NE(legacy.library, nullptr);
    ASSERT_NE(legacy.provider.handle, nullptr);
    legacy.provider.reset();
    legacy.clear();
    ASSERT_EQ(legacy.init("models"), 1);

    meridian_frame_selection* first =
        meridian_frame_selection_open("models", MERIDIAN_DOUBLE_PROVIDER_PATH);
    meridian_frame_selection* second =
        meridian_frame_selection_open("models", MERIDIAN_DOUBLE_PROVIDER_PATH);
    ASSERT_NE(first, nullptr) << meridian_open_error();
    ASSERT_NE(second, nullptr) << meridian_open_error();

    const std::vector<std::vector<float>> faces = {faceAt(0, 0), faceAt(-25, 0), faceAt(25, 0),
                                                   faceAt(0, 6)};
    for (size_t id = 0; id < faces.size(); ++id) {
        SCOPED_TRACE(id);
        float yaw = 0, pitch = 0;
        const int expected = legacy.offer(static_cast<int>(id), faces[id], &yaw, &pitch);
        legacy.provider.next(faces[id]);
        meridian_frame_intake intake{};
        ASSERT_EQ(meridian_frame_selection_add(first, static_cast<int32_t>(id), legacy.color.data(),
                                               kCols, kRows, legacy.color.size(), &intake),
                  MERIDIAN_OK)
            << meridian_frame_selection_last_error(first);
        EXPECT_EQ(intake.result, expected);
        EXPECT_EQ(std::memcmp(&intake.yaw, &yaw, sizeof yaw), 0);
        EXPECT_EQ(std::memcmp(&intake.pitch, &pitch, sizeof pitch), 0);
    }
    int legacyIds[4];
    ASSERT_EQ(legacy.final4(&legacyIds[0], &legacyIds[1], &legacyIds[2], &legacyIds[3]), 1);
    int32_t ids[4] = {-1, -1, -1, -1};
    ASSERT_EQ(meridian_frame_selection_choose(first, ids, 4), MERIDIAN_OK);
    EXPECT_EQ(std::vector<int>(ids, ids + 4), std::vector<int>(legacyIds, legacyIds + 4));

    // The second handle saw none of it; a wrong image size is refused.
    EXPECT_EQ(meridian_frame_selection_choose(second, ids, 4), MERIDIAN_INCOMPLETE);
    EXPECT_STREQ(meridian_frame_selection_last_error(second), "no frame in the front bucket");
    meridian_frame_intake intake{};
    EXPECT_EQ(meridian_frame_selection_add(second, 0, legacy.color.data(), kCols, kRows,
                                           legacy.color.size() - 1, &intake),
              MERIDIAN_INVALID_ARGUMENT);
    meridian_frame_selection_close(second);
    EXPECT_EQ(meridian_frame_selection_clear(first), MERIDIAN_OK);
    EXPECT_EQ(meridian_frame_selection_choose(first, ids, 4), MERIDIAN_INCOMPLETE);
    meridian_frame_selection_close(first);
    legacy.over();
    legacy.clear();
}

}  // namespace
