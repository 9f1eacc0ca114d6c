// Events about one subject (a selection, a scene) reach only the
// subscribers of that subject.

#include "core/Events.h"
#include "document/Selection.h"
#include "render/scene/Scene.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

class Recorder : public TezEventHandler
{
public:
    static TezRef<Recorder> Create(std::vector<std::string>* log, std::string tag,
                                   std::function<void(TezRef<TezEvent>)> action = nullptr)
    {
        return TezRef<Recorder>(new Recorder(log, std::move(tag), std::move(action)));
    }
    void Handle(TezRef<TezEvent> event) override
    {
        m_log->push_back(m_tag + ":" + event->TypeName().c_str());
        if (m_action)
            m_action(event);
    }

private:
    Recorder(std::vector<std::string>* log, std::string tag, std::function<void(TezRef<TezEvent>)> action)
        : m_log(log), m_tag(std::move(tag)), m_action(std::move(action))
    {
    }
    std::vector<std::string>* m_log;
    std::string m_tag;
    std::function<void(TezRef<TezEvent>)> m_action;
};

class EventBus : public ::testing::Test
{
protected:
    TezRef<TezEventManager> bus = TezEventManager::Create();
    std::vector<std::string> log;
};

} // namespace

TEST_F(EventBus, SelectionAndSceneEventsMatchTheirOwnSubjectOnly)
{
    auto a = TezSelection::Create();
    auto b = TezSelection::Create();
    bus->Subscribe(TezEventSelectionChanged::Create(a), Recorder::Create(&log, "A"));
    bus->Subscribe(TezEventSelectionChanged::Create(nullptr), Recorder::Create(&log, "null"));
    bus->Report(TezEventSelectionChanged::Create(b));
    EXPECT_TRUE(log.empty());
    bus->Report(TezEventSelectionChanged::Create(a));
    bus->Report(TezEventSelectionChanged::Create(nullptr));
    EXPECT_EQ((std::vector<std::string>{"A:Selection Changed Event", "null:Selection Changed Event"}), log);

    log.clear();
    auto scene = TezScene::Create();
    bus->Subscribe(TezEventSceneChanging::Create(scene), Recorder::Create(&log, "S"));
    bus->Report(TezEventSceneChanging::Create(TezScene::Create()));
    bus->Report(TezEventSceneChanged::Create(scene));
    EXPECT_TRUE(log.empty());
    bus->Report(TezEventSceneChanging::Create(scene));
    EXPECT_EQ((std::vector<std::string>{"S:Scene Changing Event"}), log);
    EXPECT_EQ(scene, TezEventSceneChanging::Create(scene)->GetScene());
}
