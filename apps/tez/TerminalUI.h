#pragma once
// TezTerminalUI: the UI bridge of a command-line host.
//
// Progress shows as one redrawn bar line on the output stream, but only when
// that stream is a terminal; nested sections show as "outer > inner". Errors
// always print, in red on a terminal. Ctrl-C raises the stop flag so that
// long work can end cleanly; a second Ctrl-C ends the process at once.
// Calls may come from worker threads.

#include "core/UIManager.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

class TezTerminalUI : public TezUICallback
{
public:
    // interactive: draw progress bars and colours (normally: out is a tty).
    TezTerminalUI(FILE* out, bool interactive);
    ~TezTerminalUI() override;

    // Routes SIGINT to the stop flag, process-wide.
    static void InstallInterruptHandler();
    // Raises or lowers the stop flag by hand (tests, host logic).
    static void SetStopFlag(bool stop);

    void StartProgress(uint64_t count) override;
    void EndProgress() override;
    void StepProgress(uint32_t count) override;
    void SetProgressMessage(TezString const& message) override;
    void StartNestedSection(bool flag) override;
    void FinishNestedSection() override;
    void AddNode(int) override {}
    void RemoveNode(int) override {}
    void SetActiveNode(int) override {}
    void SetActiveLevel(int level) override { m_activeLevel = level; }
    int GetActiveLevel() override { return m_activeLevel; }
    bool GetStopFlag() override;
    void ZoomAll() override {}
    void SetCursor(TezResourceManager::Cursors) override {}
    void SetToolCursor(TezResourceManager::Cursors) override {}
    void ReportError(TezString const& text) override;

private:
    struct Section
    {
        uint64_t total = 0;
        uint64_t done = 0;
        std::string message;
    };

    void Draw(bool force);
    void ClearLine();

    FILE* m_out;
    bool m_interactive;
    std::mutex m_mutex;
    std::vector<Section> m_sections;
    int m_activeLevel = 0;
    bool m_lineDrawn = false;
    int m_lastPercent = -1;
    std::chrono::steady_clock::time_point m_lastDraw;
};
