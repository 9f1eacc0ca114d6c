// Events about one subject (a selection, a scene) reach only the
// subscribers of that subject.

#include "document/Selection.h"
#include "render/scene/Scene.h"
#include "tests/core/EventRecorder.h"

TEST_F(EventBus, SelectionAndSceneEventsMatchTheirOwnSubjectOnly)
{
    auto a = TezSelection::Create();
    auto b = TezSelection::Create();
    bus->Subscribe(TezEventSelectionChanged::Create(a), EventRecorder::Create(&log, "A"));
    bus->Subscribe(TezEventSelectionChanged::Create(nullptr), EventRecorder::Create(&log, "null"));
    bus->Report(TezEventSelectionChanged::Create(b));
    EXPECT_TRUE(log.empty());
    bus->Report(TezEventSelectionChanged::Create(a));
    bus->Report(TezEventSelectionChanged::Create(nullptr));
    EXPECT_EQ((std::vector<std::string>{"A:Selection Changed Event", "null:Selection Changed Event"}), log);

    log.clear();
    auto scene = TezScene::Create();
    bus->Subscribe(TezEventSceneChanging::Create(scene), EventRecorder::Create(&log, "S"));
    bus->Report(TezEventSceneChanging::Create(TezScene::Create()));
    bus->Report(TezEventSceneChanged::Create(scene));
    EXPECT_TRUE(log.empty());
    bus->Report(TezEventSceneChanging::Create(scene));
    EXPECT_EQ((std::vector<std::string>{"S:Scene Changing Event"}), log);
    EXPECT_EQ(scene, TezEventSceneChanging::Create(scene)->GetScene());
}
