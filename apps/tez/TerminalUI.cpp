#include "tez/TerminalUI.h"

#include <algorithm>
#include <atomic>
#include <csignal>

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

constexpr int kBarWidth = 30;

} // namespace

TezTerminalUI::TezTerminalUI(FILE* out, bool interactive) : m_out(out), m_interactive(interactive), m_sections(1) {}

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

bool TezTerminalUI::GetStopFlag() { return g_stop; }

void TezTerminalUI::StartProgress(uint64_t count)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sections.back().total = count;
    m_sections.back().done = 0;
    m_lastPercent = -1;
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
    if (m_sections.size() == 1) {
        Draw(true);
        ClearLine();
        section = Section();
    } else {
        Draw(true);
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

void TezTerminalUI::Draw(bool force)
{
    if (!m_interactive)
        return;
    Section const& inner = m_sections.back();
    int percent =
        inner.total ? static_cast<int>(100.0 * static_cast<double>(inner.done) / static_cast<double>(inner.total)) : 0;
    auto now = std::chrono::steady_clock::now();
    // Redraw when the figure changes, at most every 50 ms otherwise.
    if (!force && percent == m_lastPercent && now - m_lastDraw < std::chrono::milliseconds(50))
        return;
    m_lastPercent = percent;
    m_lastDraw = now;

    int filled = kBarWidth * percent / 100;
    std::string line = "\r\033[K[";
    line.append(static_cast<size_t>(filled), '#');
    line.append(static_cast<size_t>(kBarWidth - filled), '.');
    line += "] " + std::to_string(percent) + "%";
    std::string text;
    for (Section const& section : m_sections) {
        if (section.message.empty())
            continue;
        if (!text.empty())
            text += " > ";
        text += section.message;
    }
    if (!text.empty())
        line += " " + text;
    std::fputs(line.c_str(), m_out);
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
