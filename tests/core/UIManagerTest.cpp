#include "core/UIManager.h"
#include "RecordingUI.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(TezUIManager, WithoutCallbackEveryCallIsAHarmlessNoOp)
{
    auto ui = TezUIManager::Create();
    ui->StartProgress(10);
    ui->StepProgress(1);
    ui->SetProgressMessage(TezString("x"));
    ui->StartNestedSection(true);
    ui->FinishNestedSection();
    ui->EndProgress();
    ui->ReportError(TezString("e"));
    ui->SetCursor(TezResourceManager::CursorPan);
    EXPECT_FALSE(ui->GetStopFlag());
    EXPECT_EQ(0, ui->GetActiveLevel());
}

TEST(TezUIManager, ForwardsEverythingUnchangedAndSwitchesCallbacksAtOnce)
{
    auto ui = TezUIManager::Create();
    RecordingUI first, second;
    ui->SetCallback(&first);
    ui->StartProgress(5000000000ull);
    ui->StepProgress(3);
    ui->SetProgressMessage(TezString("Reading"));
    ui->StartNestedSection(true);
    ui->FinishNestedSection();
    ui->AddNode(1);
    ui->RemoveNode(2);
    ui->SetActiveNode(3);
    ui->SetActiveLevel(4);
    ui->ZoomAll();
    ui->SetCursor(TezResourceManager::CursorZoom);
    ui->SetToolCursor(TezResourceManager::CursorPick);
    ui->ReportError(TezString("bad"));
    ui->EndProgress();
    EXPECT_EQ(7, ui->GetActiveLevel());
    first.stop = true;
    EXPECT_TRUE(ui->GetStopFlag());
    EXPECT_EQ(
        (std::vector<std::string>{"start 5000000000", "step 3", "msg Reading", "nest 1", "unnest", "add 1", "remove 2",
                                  "node 3", "level 4", "zoom", "cursor 8", "tool 4", "error bad", "end"}),
        first.calls);

    ui->SetCallback(&second);
    ui->StepProgress(1);
    EXPECT_FALSE(ui->GetStopFlag());
    EXPECT_EQ(14u, first.calls.size()); // the old callback hears nothing more
    EXPECT_EQ(1u, second.calls.size());

    ui->SetCallback(nullptr);
    ui->StepProgress(1);
    EXPECT_EQ(1u, second.calls.size());
}
