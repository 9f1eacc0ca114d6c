#pragma once
// A UI callback for tests that writes down every call it gets, a word and
// the arguments each; GetActiveLevel answers 7 and GetStopFlag `stop`.

#include "core/UIManager.h"

#include <string>
#include <vector>

class RecordingUI : public TezUICallback
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
