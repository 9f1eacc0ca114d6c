#include "core/Application.h"
#include "TestApplication.h"
#include "core/Callback.h"
#include "core/Events.h"
#include "core/Logger.h"
#include "core/Preferences.h"
#include "core/ResourceManager.h"
#include "core/Threads.h"
#include "core/UIManager.h"
#include "platform/System.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace {

HGLRC FakeContext() { return reinterpret_cast<HGLRC>(0x1234); }

class Counter : public TezEventHandler
{
public:
    static TezRef<Counter> Create() { return TezRef<Counter>(new Counter()); }
    void Handle(TezRef<TezEvent>) override { ++count; }
    int count = 0;
};

} // namespace

TEST(TezApplication, AccessorsAnswerNullWithoutAnApplication)
{
    ASSERT_EQ(nullptr, TezApplication::Instance());
    EXPECT_FALSE(TezEventManager::GetAppEventManager());
    EXPECT_FALSE(TezThreadManager::GetAppThreadManager());
    EXPECT_FALSE(TezResourceManager::GetAppResourceManager());
    EXPECT_FALSE(TezUIManager::GetAppUIManager());
    EXPECT_EQ(0, TezResourceManager::GetCursorPath(TezResourceManager::CursorPan, false).Length());
    TezRequestRedraw(); // no application: nothing to report to, no fault
}

TEST(TezApplication, BuildsItsManagersAndReleasesThem)
{
    TezRef<TezEventManager> events;
    {
        TestApplication app(nullptr, nullptr);
        EXPECT_EQ(&app, TezApplication::Instance());
        events = app.GetEventManager();
        ASSERT_TRUE(events);
        EXPECT_EQ(events, TezEventManager::GetAppEventManager());
        EXPECT_TRUE(app.GetUIManager());
        EXPECT_TRUE(app.GetResourceManager());
        EXPECT_EQ(app.GetUIManager(), TezUIManager::GetAppUIManager());
        EXPECT_TRUE(app.GetThreadManager());
        EXPECT_EQ(app.GetThreadManager(), TezThreadManager::GetAppThreadManager());

        events->Subscribe(TezEventDocumentChanged::Create(), Counter::Create());
        EXPECT_EQ(1u, events->GetSubscriptionCount());
        EXPECT_EQ(2, events->GetRefCount()); // the application and our copy
    }
    // Tear-down dropped the subscriptions and the application's reference.
    EXPECT_EQ(0u, events->GetSubscriptionCount());
    EXPECT_EQ(1, events->GetRefCount());
}

TEST(TezApplication, BuildsAndTearsDownInTheKernelsOrder)
{
    char base[] = "/tmp/tez_app_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(base));
    setenv("TEZ_LOG_ROOT", base, 1);
    setenv("MVLog", "SETFTRACE SHOWFNONE", 1);
    TezLogger::Reload();
    bool withViews = false; // a library narrowed below render has no render view manager
    {
        TestApplication app(nullptr, nullptr);
        app.GetEventManager()->Subscribe(TezEventDocumentChanged::Create(), Counter::Create());
        withViews = static_cast<bool>(app.GetRenderViewManager());
    }
    std::ifstream in(std::string(base) + "/Logs/MVLogFile1.log");
    std::string log((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    unsetenv("MVLog");
    TezLogger::Reload();
    std::system((std::string("rm -rf ") + base).c_str());

    size_t last = 0;
    for (char const* step : {"built the thread manager", "built the event manager", "built the render view manager",
                             "built the UI manager", "built the resource manager", "stopped all threads",
                             "dropped all subscriptions", "released the managers"}) {
        if (!withViews && std::string(step) == "built the render view manager")
            continue;
        size_t at = log.find(step);
        ASSERT_NE(std::string::npos, at) << step << "\n" << log;
        EXPECT_GT(at, last) << step;
        last = at;
    }
}

TEST(TezApplication, No3DGraphicsModeKeepsItsReversedAnswer)
{
    {
        TestApplication app(nullptr, nullptr);
        EXPECT_EQ(nullptr, app.GetRenderContext());
        EXPECT_FALSE(app.IsNo3DGraphicsMode());
    }
    {
        TestApplication app(FakeContext(), reinterpret_cast<HWND>(0x42));
        EXPECT_EQ(FakeContext(), app.GetRenderContext());
        EXPECT_TRUE(app.IsNo3DGraphicsMode());
        EXPECT_EQ(reinterpret_cast<HWND>(0x42), app.GetAppWindow());
    }
}

TEST(TezApplication, RedrawRequestsHonourSuspension)
{
    TestApplication app(nullptr, nullptr);
    auto counter = Counter::Create();
    app.GetEventManager()->Subscribe(TezEventRequestRedraw::Create(), counter);
    TezRequestRedraw();
    EXPECT_EQ(1, counter->count);

    TezSuspendRedraw();
    TezSuspendRedraw();
    TezRequestRedraw();
    TezResumeRedraw();
    TezRequestRedraw();
    EXPECT_EQ(1, counter->count);
    TezResumeRedraw();
    TezRequestRedraw();
    EXPECT_EQ(2, counter->count);

    // Resuming has no floor: an extra resume lets the next suspend through.
    TezResumeRedraw();
    TezSuspendRedraw();
    TezRequestRedraw();
    EXPECT_EQ(3, counter->count);
    TezSuspendRedraw();
    TezRequestRedraw();
    EXPECT_EQ(3, counter->count);
    TezResumeRedraw();
    EXPECT_EQ(0u, app.GetEventManager()->GetHeldCount()); // nothing was queued
}

TEST(TezResourceManager, PathsAreTheResourcePathPlusTheFolder)
{
    TestApplication app(nullptr, nullptr);
    TezRef<TezResourceManager> resources = app.GetResourceManager();
    EXPECT_STREQ(TezGetExecutableDir().c_str(), resources->GetResourcePath().c_str());

    resources->SetResourcePath(TezString("X"));
    EXPECT_STREQ("X/media/cursors/name.ico",
                 resources->GetFullPath(TezResourceManager::ResourceCursor, TezString("name.ico")));
    EXPECT_STREQ("X/media/shaders/vertex/a.vs",
                 resources->GetFullPath(TezResourceManager::ResourceVertexShader, TezString("a.vs")));
    EXPECT_STREQ("X/media/additivedocumentation/",
                 resources->GetFullPath(TezResourceManager::ResourceAdditiveDocumentation, TezString("")));

    EXPECT_STREQ("X/media/cursors/OrbitCursor24.ico",
                 TezResourceManager::GetCursorPath(TezResourceManager::CursorOrbit, true));
    EXPECT_STREQ("X/media/cursors/ZoomWindowCursor.ico",
                 TezResourceManager::GetCursorPath(TezResourceManager::CursorZoomWindow, false));
    EXPECT_EQ(TezResourceManager::GetCursorPath(TezResourceManager::CursorCrossHair, true),
              TezResourceManager::GetCursorPath(TezResourceManager::CursorCrossHair, false));
    EXPECT_EQ(0, TezResourceManager::GetCursorPath(static_cast<TezResourceManager::Cursors>(0), false).Length());
    EXPECT_EQ(0, TezResourceManager::GetCursorPath(static_cast<TezResourceManager::Cursors>(10), false).Length());
}

TEST(TezResourceManager, BufferFromFileReadsWholeFilesAndAnswersEmptyOtherwise)
{
    char path[] = "/tmp/tez_resource_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::ofstream(path) << "line one\nline two\n";
    EXPECT_STREQ("line one\nline two\n", TezResourceManager::BufferFromFile(TezString(path)));
    std::remove(path);
    EXPECT_EQ(0, TezResourceManager::BufferFromFile(TezString(path)).Length());
}

TEST(TezSystem, HelpersAnswerSensibly)
{
    double load = TezGetMemoryLoad();
    EXPECT_GE(load, 0.0);
    EXPECT_LE(load, 1.0);
    EXPECT_GT(TezGetTotalMemory(), TezGetAvailableMemory());
    EXPECT_GE(TezGetNumberOfProcessors(), 1u);
    EXPECT_TRUE(TezIsDirectory(TezGetExecutableDir().c_str()));
    EXPECT_TRUE(TezIsDirectory(TezGetCurrentDir().c_str()));
    EXPECT_EQ("a/b/c/", TezTransformPath("a\\b/c\\"));
    EXPECT_EQ("ABC1", TezToUpper("aBc1"));
    EXPECT_EQ("", TezGetEnv("TEZ_SURELY_UNSET_VARIABLE"));
    int64_t position = 5;
    TezAdvancePos(position, 7);
    EXPECT_EQ(12, position);

    char base[] = "/tmp/tez_dirs_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(base));
    TezString nested = TezString(base) + TezString("/one/two");
    TezCreateDir(nested); // its answer carries no meaning
    EXPECT_TRUE(TezIsDirectory(nested));
    EXPECT_FALSE(TezIsDirectory(TezString(base) + TezString("/none")));
}

TEST(TezCallback, FictiveCallbackDoesNothing)
{
    EXPECT_EQ(1, NvOptimusEnablementCuda);
    TezRef<TezCallback> callback = TezCallbackFictive::Create();
    callback->Callback();
    EXPECT_EQ(1, callback->GetRefCount());
}
