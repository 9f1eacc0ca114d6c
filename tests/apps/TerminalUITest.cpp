#include "tez/TerminalUI.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <string>

namespace {

std::string Contents(FILE* file)
{
    std::fflush(file);
    std::rewind(file);
    std::string text;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0)
        text.append(chunk, n);
    return text;
}

} // namespace

TEST(TezTerminalUI, DrawsABarWithNestedMessagesOnATerminal)
{
    FILE* out = std::tmpfile();
    {
        TezTerminalUI ui(out, true);
        ui.SetProgressMessage(TezString("Reading slices"));
        ui.StartProgress(4);
        ui.StepProgress(2);
        ui.StartNestedSection(true);
        ui.SetProgressMessage(TezString("slice 3"));
        ui.StartProgress(10);
        ui.StepProgress(10);
        ui.EndProgress();
        ui.FinishNestedSection();
        ui.EndProgress();
    }
    std::string text = Contents(out);
    std::fclose(out);
    EXPECT_NE(std::string::npos, text.find("] 50% Reading slices"));
    EXPECT_NE(std::string::npos, text.find("] 100% Reading slices > slice 3"));
    EXPECT_NE(std::string::npos, text.find("[##############################] 100%"));
    EXPECT_EQ("\r\033[K", text.substr(text.size() - 4)); // the line is cleared at the end
}

TEST(TezTerminalUI, StaysQuietWhenNotATerminalButStillReportsErrors)
{
    FILE* out = std::tmpfile();
    TezTerminalUI ui(out, false);
    ui.StartProgress(3);
    ui.StepProgress(1);
    ui.SetProgressMessage(TezString("work"));
    ui.EndProgress();
    EXPECT_EQ("", Contents(out));
    ui.ReportError(TezString("file not found"));
    EXPECT_EQ("error: file not found\n", Contents(out));
    std::fclose(out);

    FILE* tty = std::tmpfile();
    TezTerminalUI colour(tty, true);
    colour.ReportError(TezString("bad"));
    EXPECT_EQ("\033[31merror: bad\033[0m\n", Contents(tty));
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
