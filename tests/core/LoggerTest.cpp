#include "core/Logger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <sys/stat.h>

namespace {

std::string ReadFile(std::string const& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

bool Exists(std::string const& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

// Each test gets its own folders and settings, read as at a process start.
class Logger : public ::testing::Test
{
protected:
    void Start(char const* settings)
    {
        char base[] = "/tmp/tez_log_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(base));
        m_root = base;
        setenv("TEZ_LOG_ROOT", base, 1);
        if (settings)
            setenv("MVLog", settings, 1);
        else
            unsetenv("MVLog");
        TezLogger::Reload();
        m_file = std::string(TezLogger::GetLogFilePath()) + "MVLogFile1.log";
    }
    void TearDown() override
    {
        unsetenv("MVLog");
        TezLogger::Reload();
        unsetenv("TEZ_LOG_ROOT");
        std::system(("rm -rf '" + m_root + "'").c_str());
    }
    std::string m_root;
    std::string m_file;
};

} // namespace

TEST_F(Logger, FoldersFollowTheRedirect)
{
    Start(nullptr);
    EXPECT_EQ(m_root + "/Logs/", TezLogger::GetLogFilePath());
    EXPECT_EQ(m_root + "/AppData/Morvane/", TezLogger::GetTempFilePath());
    EXPECT_EQ(m_root + "/Documents/Morvane/", TezLogger::GetUserFilePath());
    EXPECT_TRUE(Exists(TezLogger::GetLogFilePath()));
    EXPECT_TRUE(Exists(TezLogger::GetTempFilePath()));
}

TEST_F(Logger, DefaultsSendDebugToTheFileOnlyAndInfoToBoth)
{
    Start(nullptr);
    ::testing::internal::CaptureStdout();
    TezLogger::debug("quiet %d", 1);
    TezLogger::infoCat("cat", "loud %s", "two");
    std::string console = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ("loud two", console); // bare text, no decoration, no newline added

    std::string file = ReadFile(m_file);
    EXPECT_TRUE(
        std::regex_search(file, std::regex("\r\n\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} >>>> START!!! >>>>\n")))
        << file;
    EXPECT_TRUE(std::regex_search(file, std::regex("\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} DEBUG: quiet 1\n")))
        << file;
    EXPECT_TRUE(std::regex_search(file, std::regex("\\d\\d:\\d\\d\\.\\d{3}  INFO: \\[cat\\] loud two\n"))) << file;
}

TEST_F(Logger, SettingsWordsAndCategoryFilter)
{
    Start("setfnone, SHOWLEVEL,Mesh");
    EXPECT_EQ(7, TezLogger::GetFileLevel());
    EXPECT_EQ(3, TezLogger::GetConsoleLevel());
    EXPECT_TRUE(TezLogger::isLog("mesh"));
    EXPECT_FALSE(TezLogger::isLog("other"));
    EXPECT_TRUE(TezLogger::isLog(nullptr));
    EXPECT_TRUE(TezLogger::isLog(""));

    ::testing::internal::CaptureStdout();
    TezLogger::infoCat("mesh", "kept\n");
    TezLogger::infoCat("other", "dropped\n");
    TezLogger::info("plain\n");
    TezLogger::warn("warned\n");
    EXPECT_EQ(" INFO: kept\n INFO: plain\n WARN: warned\n", ::testing::internal::GetCapturedStdout());

    TezLogger::SetExclusive(true);
    EXPECT_FALSE(TezLogger::isLog(nullptr));
    EXPECT_TRUE(TezLogger::isLog("MESH"));

    // Only the first settings word is ever added or removed, whatever the argument.
    TezLogger::ClearCategories();
    EXPECT_TRUE(TezLogger::isLog("anything"));
    TezLogger::AddCategory("ignored");
    EXPECT_FALSE(TezLogger::isLog("anything"));
    EXPECT_FALSE(TezLogger::isLog("ignored"));
    EXPECT_TRUE(TezLogger::isLog("SETFNONE"));
    TezLogger::RemoveCategory("also ignored");
    EXPECT_TRUE(TezLogger::isLog("anything"));
}

TEST_F(Logger, ExclusiveAndDateWordsFromTheEnvironment)
{
    Start("EXCLUSIVE mesh SHOWSEC SHOWCAT SHOWFNONE SETFTRACE");
    EXPECT_EQ(1, TezLogger::GetFileLevel());
    EXPECT_FALSE(TezLogger::isLog(nullptr));
    ::testing::internal::CaptureStdout();
    TezLogger::infoCat("Mesh", "x");
    std::string console = ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(console, std::regex("\\d\\d\\.\\d{3} \\[Mesh\\] x"))) << console;
    TezLogger::traceCat("mesh", "traced");
    EXPECT_NE(std::string::npos, ReadFile(m_file).find("\nTRACE: [mesh] traced\n"));
}

TEST_F(Logger, ExceptLogsToTheFileOnlyAndThrows)
{
    Start("SETTRACE");
    ::testing::internal::CaptureStdout();
    try {
        TezLogger::except("broken %d", 7);
        FAIL() << "except returned";
    } catch (std::runtime_error const& e) {
        EXPECT_STREQ("broken 7", e.what());
    }
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout());
    EXPECT_NE(std::string::npos, ReadFile(m_file).find("EXCEPT: broken 7\n"));
}

TEST_F(Logger, BufferingHoldsLinesUntilFlushedOrTurnedOff)
{
    Start("LOGBUFON");
    EXPECT_TRUE(TezLogger::GetLogBuffering());
    TezLogger::debug("waiting line");
    EXPECT_EQ(std::string::npos, ReadFile(m_file).find("waiting line"));
    TezLogger::SetLogBuffering(false);
    EXPECT_NE(std::string::npos, ReadFile(m_file).find("waiting line\n"));

    TezLogger::SetLogBuffering(true);
    std::string big(3000, 'b');
    TezLogger::debug("small one");
    TezLogger::debug("%s", big.c_str()); // too long to wait: written at once, after what waited
    std::string file = ReadFile(m_file);
    size_t small = file.find("small one\n");
    size_t large = file.find(big);
    ASSERT_NE(std::string::npos, small);
    ASSERT_NE(std::string::npos, large);
    EXPECT_LT(small, large);
    TezLogger::SetLogBuffering(false);
}

TEST_F(Logger, RotatesAboveOneMebibyteKeepingNineFiles)
{
    Start("SHOWFNONE");
    std::string logs = TezLogger::GetLogFilePath();
    auto name = [&](int i) { return logs + "MVLogFile" + std::to_string(i) + ".log"; };
    std::ofstream(name(1), std::ios::binary) << std::string(1048576, 'x');
    std::ofstream(name(2), std::ios::binary) << "old two";
    std::ofstream(name(9), std::ios::binary) << "old nine";

    TezLogger::debug("not yet"); // exactly 1 MiB: no rotation
    EXPECT_EQ("old two", ReadFile(name(2)));

    TezLogger::debug("fresh");
    EXPECT_EQ("DEBUG: fresh\n", ReadFile(name(1)));
    EXPECT_EQ(1048576u + std::string("DEBUG: not yet\n").size(), ReadFile(name(2)).size());
    EXPECT_EQ("old two", ReadFile(name(3)));
    EXPECT_FALSE(Exists(name(9)));
    EXPECT_FALSE(Exists(name(10)));
}

TEST_F(Logger, SetFilePermissionOpensTheFileToEveryone)
{
    Start(nullptr);
    TezLogger::debug("x");
    chmod(m_file.c_str(), 0600);
    TezLogger::SetFilePermission(m_file.c_str());
    struct stat info;
    ASSERT_EQ(0, stat(m_file.c_str(), &info));
    EXPECT_EQ(0666u, info.st_mode & 0777u);
    TezLogger::SetFilePermission("/no/such/file"); // failures are ignored
}
