#include "tez/TerminalUI.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

std::atomic<bool> g_stop{false};
volatile std::sig_atomic_t g_interrupts = 0;

extern "C" void OnInterrupt(int)
{
    g_stop = true;
    if (++g_interrupts >= 2) {
        std::signal(SIGINT, SIG_DFL);
        std::raise(SIGINT);
    }
}

} // namespace

TezTerminalUI::TezTerminalUI(FILE* out, bool interactive, int columns)
    : m_out(out), m_interactive(interactive), m_columns(columns), m_sections(1)
{
}

TezTerminalUI::~TezTerminalUI()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ClearLine();
}

void TezTerminalUI::InstallInterruptHandler()
{
    struct sigaction action
    {
    };
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

void TezTerminalUI::SetStopFlag(bool stop)
{
    g_stop = stop;
    if (!stop)
        g_interrupts = 0;
}

bool TezTerminalUI::StopRequested() { return g_stop; }

bool TezTerminalUI::GetStopFlag() { return g_stop; }

int TezTerminalUI::TerminalColumns(FILE* stream)
{
    struct winsize size
    {
    };
    if (stream && ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    if (char const* columns = std::getenv("COLUMNS")) {
        int const value = std::atoi(columns);
        if (value > 0)
            return value;
    }
    return 80;
}

void TezTerminalUI::PlanSteps(std::vector<Step> steps)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_steps = std::move(steps);
    m_step = 0;
    m_stepName.clear();
    m_stepShown = 0.0;
}

void TezTerminalUI::BeginStep(std::string const& name, int sections)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stepName = name;
    for (size_t i = 0; i < m_steps.size(); ++i)
        if (m_steps[i].name == name && i != m_step) {
            m_step = i;
            m_stepShown = 0.0;
        }
    m_stepSections = std::max(sections, 1);
    m_sectionIndex = -1;
    m_sectionBase = 0.0;
    m_sections.assign(1, Section());
    Draw(true);
}

void TezTerminalUI::ClearProgress()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ClearLine();
}

void TezTerminalUI::StartProgress(uint64_t count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_sections.size() == 1) {
        // A further section of the step goes on from what was shown.
        if (m_sectionIndex >= 0)
            m_sectionBase = m_stepShown;
        ++m_sectionIndex;
    }
    m_sections.back().total = count;
    m_sections.back().done = 0;
    Draw(true);
}

void TezTerminalUI::StepProgress(uint32_t count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Section& section = m_sections.back();
    section.done = std::min(section.total, section.done + count);
    Draw(false);
}

void TezTerminalUI::EndProgress()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Section& section = m_sections.back();
    section.done = section.total;
    Draw(true);
    // A finished outermost section makes way for the next one; the figure
    // shown stays.
    if (m_sections.size() == 1) {
        if (m_steps.empty()) {
            ClearLine();
            m_stepShown = 0.0;
            m_sectionIndex = -1;
            m_sectionBase = 0.0;
        }
        section = Section();
    }
}

void TezTerminalUI::SetProgressMessage(TezString const& message)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sections.back().message = message.c_str();
    Draw(true);
}

void TezTerminalUI::StartNestedSection(bool)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sections.emplace_back();
}

void TezTerminalUI::FinishNestedSection()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_sections.size() > 1)
        m_sections.pop_back();
    Draw(true);
}

void TezTerminalUI::ReportError(TezString const& text)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ClearLine();
    if (m_interactive)
        std::fprintf(m_out, "\033[31merror: %s\033[0m\n", text.c_str());
    else
        std::fprintf(m_out, "error: %s\n", text.c_str());
    std::fflush(m_out);
}

double TezTerminalUI::SectionFraction(size_t level) const
{
    if (level >= m_sections.size())
        return 0.0;
    Section const& section = m_sections[level];
    double const inner = SectionFraction(level + 1);
    if (section.total == 0)
        return inner;
    // A nested section is one step of the section around it.
    return std::min(1.0, (double(section.done) + (section.done < section.total ? inner : 0.0)) / double(section.total));
}

double TezTerminalUI::Overall()
{
    if (m_steps.empty())
        return m_stepShown = SectionFraction(0);
    // The step's expected sections share it; the last of them, and any
    // beyond, take 9/10 of what is left, so that the figure keeps moving
    // and reaches the step's end only when the command begins the next.
    int const k = std::max(m_sectionIndex, 0);
    double const left = 1.0 - m_sectionBase;
    double const span = k < m_stepSections - 1 ? left / double(m_stepSections - k) : 0.9 * left;
    m_stepShown = std::max(m_stepShown, m_sectionBase + span * SectionFraction(0));
    double total = 0.0, before = 0.0;
    for (size_t i = 0; i < m_steps.size(); ++i) {
        total += m_steps[i].share;
        if (i < m_step)
            before += m_steps[i].share;
    }
    if (!(total > 0.0))
        return 0.0;
    return std::min(1.0, (before + m_stepShown * m_steps[m_step].share) / total);
}

void TezTerminalUI::Draw(bool force)
{
    if (!m_interactive)
        return;
    // Redraw at most every 50 ms unless forced: steps may come millions of
    // times a second.
    auto const now = std::chrono::steady_clock::now();
    if (!force && now - m_lastDraw < std::chrono::milliseconds(50))
        return;
    int const percent = static_cast<int>(100.0 * Overall());

    std::string text = m_stepName;
    for (Section const& section : m_sections) {
        if (section.message.empty())
            continue;
        if (!text.empty())
            text += text == m_stepName ? ": " : " > ";
        text += section.message;
    }
    // One column is left free: a line that fills the terminal exactly
    // wraps on some terminals.
    int const columns = std::max(m_columns > 0 ? m_columns : TerminalColumns(m_out), 12) - 1;
    int const barWidth = std::clamp(columns * 2 / 5, 4, 30);
    int const filled = barWidth * percent / 100;
    std::string line = "[";
    line.append(static_cast<size_t>(filled), '#');
    line.append(static_cast<size_t>(barWidth - filled), '.');
    line += "] " + std::to_string(percent) + "%";
    if (!text.empty())
        line += " " + text;
    if (line.size() > size_t(columns))
        line.resize(size_t(columns));
    m_lastDraw = now;
    if (line == m_lastLine && m_lineDrawn && !force)
        return;
    m_lastLine = line;
    std::fputs(("\r\033[K" + line).c_str(), m_out);
    std::fflush(m_out);
    m_lineDrawn = true;
}

void TezTerminalUI::ClearLine()
{
    if (m_interactive && m_lineDrawn) {
        std::fputs("\r\033[K", m_out);
        std::fflush(m_out);
    }
    m_lineDrawn = false;
}
