// The demo model set with its blendshape data, written once per run into
// the build tree by a CTest fixture; tests that need it skip without it.
#pragma once

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

namespace meridian::testing {

inline const std::string kBlendshapeDemoDir = MERIDIAN_BLENDSHAPE_DEMO_DIR;

}  // namespace meridian::testing

#define REQUIRE_BLENDSHAPE_DEMO_DATA()                                                       \
    if (!std::filesystem::exists(::meridian::testing::kBlendshapeDemoDir + "/BS"))           \
    GTEST_SKIP() << "no demo blendshape data in " << ::meridian::testing::kBlendshapeDemoDir \
                 << " (ctest's setup writes it)"
