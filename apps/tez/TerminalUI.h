#pragma once
// TezTerminalUI: the UI bridge of a command-line host.
//
// Progress shows as one redrawn line on the output stream, only when that
// stream is a terminal: a bar and percentage of the whole command, then the
// command's step and the kernel's messages ("outer > inner"). The command
// may plan its steps with their shares of the whole (PlanSteps, BeginStep);
// the kernel's sections fill the current step one after the other, a nested
// section standing for one step of the section around it, and the figure
// never goes back. The line is cut to the terminal's width (TIOCGWINSZ, else COLUMNS,
// else 80) so that it never wraps.
//
// Errors always print, in red on a terminal. Ctrl-C raises the stop flag so
// that long work can end cleanly; a second Ctrl-C ends the process at once.
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
    struct Step
    {
        std::string name;
        double share = 1.0;
    };

    // interactive: draw progress bars and colours (normally: out is a tty).
    // columns: the line's width; 0 asks the terminal each time it draws.
    TezTerminalUI(FILE* out, bool interactive, int columns = 0);
    ~TezTerminalUI() override;

    // Routes SIGINT to the stop flag, process-wide.
    static void InstallInterruptHandler();
    // Raises or lowers the stop flag by hand (tests, host logic).
    static void SetStopFlag(bool stop);
    // Whether Ctrl-C (or SetStopFlag) asked the work to stop.
    static bool StopRequested();
    // The width of the terminal behind stream, else $COLUMNS, else 80.
    static int TerminalColumns(FILE* stream);

    // The command's steps in order; replaces any plan, and starts none.
    void PlanSteps(std::vector<Step> steps);
    // Moves to the planned step of that name (the steps before it count as
    // done); a name not in the plan is shown without moving the bar.
    // sections: how many of the kernel's outermost sections the step
    // expects, to share it among them.
    void BeginStep(std::string const& name, int sections = 1);
    // Clears the line; the next progress draws it again.
    void ClearProgress();

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

    // Share of the current step done by the kernel's sections, 0..1.
    double SectionFraction(size_t level) const;
    // Share of the whole command done, 0..1, never less than shown before.
    double Overall();
    void Draw(bool force);
    void ClearLine();

    FILE* m_out;
    bool m_interactive;
    int m_columns;
    std::mutex m_mutex;
    std::vector<Section> m_sections;
    std::vector<Step> m_steps;
    size_t m_step = 0;
    std::string m_stepName;
    double m_stepShown = 0.0;
    int m_stepSections = 1;
    int m_sectionIndex = -1; // the step's current outermost section
    double m_sectionBase = 0.0;
    int m_activeLevel = 0;
    bool m_lineDrawn = false;
    std::string m_lastLine;
    std::chrono::steady_clock::time_point m_lastDraw;
};
