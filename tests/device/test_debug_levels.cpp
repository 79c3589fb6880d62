// SPDX-License-Identifier: MIT
// An operator sets a level with the tool; a daemon that has been running all the while prints, or
// falls silent, at once.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "prod_common_debug.h"
#include "stories.hpp"
#include "support/capture.hpp"

using story::must;

namespace
{

std::string said_at_level_4()
{
    return test::printed([] { PROD_LOG_INFO("story", "the daemon at work"); });
}

TEST(DebugLevels, SetByTheToolSeenByARunningProcess)
{
    EXPECT_EQ(said_at_level_4(), "");
    must("prodctl debug set story 4");
    EXPECT_NE(said_at_level_4().find("the daemon at work"), std::string::npos);
    must("prodctl debug set story 3");
    EXPECT_EQ(said_at_level_4(), "");
    EXPECT_EQ(story::Json::answer_of("prodctl debug show --json")["modules"]
                  .where("name", "story")["level"]
                  .number(),
              3);
    must("prodctl debug set story 0");
    EXPECT_EQ(get_dbg_level("story"), PROD_DBG_OFF);
}

}  // namespace
