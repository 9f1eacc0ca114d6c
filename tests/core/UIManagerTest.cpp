#include "core/UIManager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class Recording : public TezUICallback
{
public:
    std::vector<std::string> calls;
    bool stop = false;
    void StartProgress(uint64_t n) override { calls.push_back("start " + std::to_string(n)); }
    void EndProgress() override { calls.push_back("end"); }
    void StepProgress(uint32_t n) override { calls.push_back("step " + std::to_string(n)); }
    void SetProgressMessage(TezString const& m) override { calls.push_back(std::string("msg ") + m.c_str()); }
    void StartNestedSection(bool f) override { calls.push_back(f ? "nest 1" : "nest 0"); }
    void FinishNestedSection() override { calls.push_back("unnest"); }
    void AddNode(int n) override { calls.push_back("add " + std::to_string(n)); }
    void RemoveNode(int n) override { calls.push_back("remove " + std::to_string(n)); }
    void SetActiveNode(int n) override { calls.push_back("node " + std::to_string(n)); }
    void SetActiveLevel(int n) override { calls.push_back("level " + std::to_string(n)); }
    int GetActiveLevel() override { return 7; }
    bool GetStopFlag() override { return stop; }
    void ZoomAll() override { calls.push_back("zoom"); }
    void SetCursor(TezResourceManager::Cursors c) override { calls.push_back("cursor " + std::to_string(c)); }
    void SetToolCursor(TezResourceManager::Cursors c) override { calls.push_back("tool " + std::to_string(c)); }
    void ReportError(TezString const& t) override { calls.push_back(std::string("error ") + t.c_str()); }
};

} // namespace

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
    Recording first, second;
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
    EXPECT_EQ((std::vector<std::string>{"start 5000000000", "step 3", "msg Reading", "nest 1", "unnest",
                                        "add 1", "remove 2", "node 3", "level 4", "zoom", "cursor 8",
                                        "tool 4", "error bad", "end"}),
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
