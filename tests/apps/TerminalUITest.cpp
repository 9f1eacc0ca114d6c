#include "tez/TerminalUI.h"
#include "tests/apps/CommandRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

// The lines drawn, in order: each redraw starts with "\r\033[K".
std::vector<std::string> Lines(std::string const& text)
{
    std::vector<std::string> lines;
    size_t at = 0;
    while ((at = text.find("\r\033[K", at)) != std::string::npos) {
        at += 4;
        size_t const next = text.find("\r\033[K", at);
        lines.push_back(text.substr(at, next == std::string::npos ? std::string::npos : next - at));
    }
    return lines;
}

TEST(TezTerminalUI, DrawsOverallProgressWithNestedMessagesOnATerminal)
{
    FILE* out = std::tmpfile();
    {
        TezTerminalUI ui(out, true, 80);
        ui.SetProgressMessage(TezString("Reading slices"));
        ui.StartProgress(4);
        ui.StepProgress(2);
        // A nested section is one step of the section around it.
        ui.StartNestedSection(true);
        ui.SetProgressMessage(TezString("slice 3"));
        ui.StartProgress(10);
        ui.StepProgress(10);
        ui.EndProgress();
        ui.FinishNestedSection();
        ui.EndProgress();
    }
    std::string text = FileText(out);
    std::fclose(out);
    EXPECT_NE(std::string::npos, text.find("] 50% Reading slices"));
    EXPECT_NE(std::string::npos, text.find("] 75% Reading slices > slice 3"));
    EXPECT_NE(std::string::npos, text.find("[##############################] 100%"));
    EXPECT_EQ("\r\033[K", text.substr(text.size() - 4)); // the line is cleared at the end
}

TEST(TezTerminalUI, PlannedStepsShareTheBarWhichNeverGoesBack)
{
    FILE* out = std::tmpfile();
    {
        TezTerminalUI ui(out, true, 80);
        ui.PlanSteps({{"reading", 1.0}, {"building", 3.0}});
        ui.BeginStep("reading");
        ui.StartProgress(2);
        ui.StepProgress(1);
        ui.EndProgress();
        ui.BeginStep("building");
        ui.SetProgressMessage(TezString("blocks"));
        ui.StartProgress(4);
        ui.StepProgress(1);
        ui.StepProgress(1);
        ui.SetProgressMessage(TezString("blocks")); // draws now, not 50 ms after the last line
        ui.EndProgress();
        // A second section of the same step goes on from there.
        ui.StartProgress(10);
        ui.StepProgress(1);
    }
    std::vector<std::string> const lines = Lines(FileText(out));
    std::fclose(out);
    std::vector<std::string> percents;
    for (std::string const& line : lines)
        if (line.find("] ") != std::string::npos)
            percents.push_back(line.substr(line.find("] ") + 2, line.find('%') - line.find("] ") - 2));
    ASSERT_FALSE(percents.empty());
    for (size_t i = 1; i < percents.size(); ++i)
        EXPECT_LE(std::stoi(percents[i - 1]), std::stoi(percents[i])) << lines[i];
    EXPECT_NE(lines.end(), std::find(lines.begin(), lines.end(), "[#######.......................] 25% building"));
    EXPECT_NE(lines.end(),
              std::find(lines.begin(), lines.end(), "[#################.............] 58% building: blocks"));
    EXPECT_EQ("92", percents.back());
}

TEST(TezTerminalUI, TheLineFitsANarrowTerminal)
{
    FILE* out = std::tmpfile();
    {
        TezTerminalUI ui(out, true, 24);
        ui.PlanSteps({{"a step with a long name", 1.0}});
        ui.BeginStep("a step with a long name");
        ui.StartProgress(3);
        ui.StepProgress(1);
        ui.SetProgressMessage(TezString("and a long message from the kernel"));
    }
    std::string const text = FileText(out);
    std::fclose(out);
    EXPECT_EQ(std::string::npos, text.find('\n'));
    for (std::string const& line : Lines(text))
        EXPECT_LE(line.size(), 23u) << line;
    EXPECT_NE(std::string::npos, text.find("[##.......] 30% a step"));
}

TEST(TezTerminalUI, StaysQuietWhenNotATerminalButStillReportsErrors)
{
    FILE* out = std::tmpfile();
    TezTerminalUI ui(out, false);
    ui.StartProgress(3);
    ui.StepProgress(1);
    ui.SetProgressMessage(TezString("work"));
    ui.EndProgress();
    EXPECT_EQ("", FileText(out));
    ui.ReportError(TezString("file not found"));
    EXPECT_EQ("error: file not found\n", FileText(out));
    std::fclose(out);

    FILE* tty = std::tmpfile();
    TezTerminalUI colour(tty, true);
    colour.ReportError(TezString("bad"));
    EXPECT_EQ("\033[31merror: bad\033[0m\n", FileText(tty));
    std::fclose(tty);
}

TEST(TezTerminalUI, InterruptRaisesTheStopFlag)
{
    TezTerminalUI ui(stderr, false);
    TezTerminalUI::SetStopFlag(false);
    EXPECT_FALSE(ui.GetStopFlag());
    TezTerminalUI::InstallInterruptHandler();
    std::raise(SIGINT); // the first interrupt only asks work to stop
    EXPECT_TRUE(ui.GetStopFlag());
    TezTerminalUI::SetStopFlag(false);
    EXPECT_FALSE(ui.GetStopFlag());
    std::signal(SIGINT, SIG_DFL);
}
