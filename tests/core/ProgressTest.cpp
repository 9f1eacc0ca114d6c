#include "core/Progress.h"
#include "RecordingUI.h"
#include "TestApplication.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The application's UI manager reports to `ui` while the fixture lives.
class ProgressTest : public ::testing::Test
{
protected:
    ProgressTest() { m_app.GetUIManager()->SetCallback(&ui); }
    ~ProgressTest() override { m_app.GetUIManager()->SetCallback(nullptr); }

    TestApplication m_app;
    RecordingUI ui;
};

} // namespace

TEST_F(ProgressTest, SectionsNestingAndEnds)
{
    {
        TezProgress progress("Reading", 3);
        progress.Step();
        {
            TezProgress::Nested const inner(progress, true);
            progress.Step(2);
        }
        // A second section in the same object: one End closes the job.
        progress.Start("Joining", 5);
        progress.Start(nullptr, 6);
        progress.End();
        progress.SetMessage("Done");
    }
    EXPECT_EQ((std::vector<std::string>{"msg Reading", "start 3", "step 1", "nest 1", "step 2", "unnest", "msg Joining",
                                        "start 5", "start 6", "end", "msg Done"}),
              ui.calls);

    // The destructor ends only a section left open.
    ui.calls.clear();
    {
        TezProgress progress;
        progress.Start(4);
        TezProgress::Nested const inner(progress);
    }
    TezProgress().End();
    EXPECT_EQ((std::vector<std::string>{"start 4", "nest 0", "unnest", "end", "end"}), ui.calls);
}

TEST_F(ProgressTest, StopFlagIsPolledEachTime)
{
    TezProgress progress;
    EXPECT_FALSE(progress.StopRequested());
    ui.stop = true;
    EXPECT_TRUE(progress.StopRequested());
    ui.stop = false;
    EXPECT_FALSE(progress.StopRequested());
}

TEST_F(ProgressTest, SilentWhenDisabled)
{
    ui.stop = true;
    {
        TezProgress progress(false);
        EXPECT_FALSE(progress.IsReporting());
        progress.Start("x", 1);
        progress.Step();
        TezProgress::Nested const inner(progress);
        EXPECT_FALSE(progress.StopRequested());
    }
    EXPECT_TRUE(ui.calls.empty());
}

TEST(TezProgress, SilentWithoutApplication)
{
    TezProgress progress("x", 1);
    EXPECT_FALSE(progress.IsReporting());
    progress.Step();
    EXPECT_FALSE(progress.StopRequested());
}
