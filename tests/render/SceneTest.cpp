#include "render/scene/Scene.h"
#include "core/Events.h"
#include "render/effects/DefaultEffects.h"
#include "render/scene/Light.h"
#include "render/scene/SceneDrawData.h"
#include "render/scene/SceneObject.h"
#include "tests/core/TestApplication.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

// A node drawn by an effect of choice, counting its unbuilds.
class Node : public TezSceneObject
{
public:
    static TezRef<Node> Make(uint32_t effectType = TezDefaultEffect::StaticType())
    {
        return TezRef<Node>(new Node(effectType));
    }
    bool UnbuildObject() override
    {
        ++unbuilds;
        return true;
    }
    int unbuilds = 0;

private:
    explicit Node(uint32_t effectType) : TezSceneObject(effectType) {}
};

class Counter : public TezEventHandler
{
public:
    void Handle(TezRef<TezEvent> event) override { log += event->TypeName().c_str() + std::string("; "); }
    std::string log;
};

class SceneTest : public ::testing::Test
{
protected:
    // Where the object stands in the scene's effect lists: "effect name:count".
    static int CountIn(TezRef<TezScene> const& scene, TezRef<TezSceneObject> const& object)
    {
        int found = 0;
        for (size_t i = 0; i < scene->GetNumEffects(); ++i)
            for (TezRef<TezSceneObject> const& o : scene->GetEffectObjects(i))
                found += o == object ? 1 : 0;
        return found;
    }

    TestApplication app;
    TezRef<TezScene> scene = TezScene::Create();
};

TEST_F(SceneTest, StartsWithRootBackgroundAndDefaultEffectsAndALight)
{
    ASSERT_EQ(2u, scene->GetNumEffects());
    EXPECT_EQ(TezBackgroundEffect::StaticType(), scene->GetEffectAt(0)->Type());
    EXPECT_EQ(scene->GetDefaultEffect(), scene->GetEffectAt(1));
    EXPECT_TRUE(scene->GetEffectObjects(0).empty());
    EXPECT_TRUE(scene->GetRoot()->GetProperty(TezSceneObject::SceneRoot));
    EXPECT_EQ(scene, scene->GetRoot()->GetScene());
    EXPECT_TRUE(scene->GetLight());
    EXPECT_TRUE(scene->GetBounds(true).Empty());
}

// The effect lists follow every add, move and remove: each attached object
// stands exactly once in the list of its own effect, effects without
// objects go, and new users bring them back.
TEST_F(SceneTest, EffectListsStayConsistentThroughAddMoveRemove)
{
    TezRef<Node> a = Node::Make();
    TezRef<Node> b = Node::Make(TezUnlitEffect::StaticType());
    TezRef<Node> c = Node::Make(TezUnlitEffect::StaticType());
    scene->AddChild(scene->GetRoot(), a);
    scene->AddChild(scene->GetRoot(), b);
    scene->AddChild(b, c);
    ASSERT_EQ(3u, scene->GetNumEffects());
    TezRef<TezEffect> unlit = scene->GetEffect(TezUnlitEffect::StaticType());
    ASSERT_TRUE(unlit);
    EXPECT_EQ(2u, scene->GetEffectObjects(2).size());
    EXPECT_EQ(1, CountIn(scene, a));
    EXPECT_EQ(1, CountIn(scene, c));

    // Move a under c: still once, parent follows. A move removes first, so
    // a's own children are dropped and a waits to be unbuilt.
    TezRef<Node> dropped = Node::Make();
    scene->AddChild(a, dropped);
    scene->AddChild(c, a);
    EXPECT_EQ(1, CountIn(scene, a));
    EXPECT_EQ(0, CountIn(scene, dropped));
    EXPECT_EQ(0, a->GetNumChildren());
    EXPECT_EQ(c, a->GetParent());
    EXPECT_EQ(scene, a->GetScene());
    EXPECT_EQ(2u, scene->GetUnbuildCount());
    EXPECT_EQ(1, scene->GetRoot()->GetNumChildren());
    // The default effect lost its only object for a moment and came back.
    EXPECT_TRUE(scene->GetEffect(TezDefaultEffect::StaticType()));

    // Removing b takes the whole branch out of the lists and dismantles it.
    scene->RemoveChild(b);
    EXPECT_EQ(0, CountIn(scene, a));
    EXPECT_EQ(0, CountIn(scene, b));
    EXPECT_EQ(0, CountIn(scene, c));
    EXPECT_FALSE(scene->GetEffect(TezUnlitEffect::StaticType()));
    EXPECT_FALSE(scene->GetEffect(TezDefaultEffect::StaticType()));
    EXPECT_EQ(1u, scene->GetNumEffects()); // only the background's is left
    EXPECT_EQ(0, b->GetNumChildren());
    EXPECT_EQ(0, c->GetNumChildren());
    EXPECT_FALSE(a->GetParent());
    EXPECT_FALSE(a->GetScene());
    EXPECT_EQ(5u, scene->GetUnbuildCount());

    // Unbuild runs once per waiting entry and empties the list.
    scene->Unbuild();
    EXPECT_EQ(2, a->unbuilds);
    EXPECT_EQ(1, dropped->unbuilds);
    EXPECT_EQ(0u, scene->GetUnbuildCount());

    // A new user of the unlit effect gets a new instance.
    scene->AddChild(scene->GetRoot(), b);
    TezRef<TezEffect> again = scene->GetEffect(TezUnlitEffect::StaticType());
    ASSERT_TRUE(again);
    EXPECT_NE(unlit, again);
}

TEST_F(SceneTest, BranchEntersTheListsWhenItIsHungFromTheRoot)
{
    TezRef<Node> top = Node::Make();
    TezRef<Node> leaf = Node::Make(TezUnlitEffect::StaticType());
    scene->AddChild(top, leaf);
    EXPECT_EQ(scene, leaf->GetScene());
    EXPECT_EQ(0, CountIn(scene, leaf));
    EXPECT_FALSE(scene->GetEffect(TezUnlitEffect::StaticType()));
    leaf->SetProperty(TezSceneObject::NeedsBuild, false);
    scene->AddChild(scene->GetRoot(), top);
    EXPECT_EQ(1, CountIn(scene, top));
    EXPECT_EQ(1, CountIn(scene, leaf));
    EXPECT_TRUE(leaf->GetProperty(TezSceneObject::NeedsBuild));
}

TEST_F(SceneTest, AnEffectTypeTheRegistryCannotMakeLeavesTheObjectOut)
{
    // A scene object's type is no effect: no effect, no list entry.
    TezRef<Node> odd = Node::Make(TezSceneObject::StaticType());
    TezRef<Node> child = Node::Make();
    scene->AddChild(odd, child);
    scene->AddChild(scene->GetRoot(), odd);
    EXPECT_EQ(0, CountIn(scene, odd));
    EXPECT_EQ(1, CountIn(scene, child));
    EXPECT_EQ(2u, scene->GetNumEffects());
}

TEST_F(SceneTest, RemoveAllChildrenListsDirectChildrenTwiceForUnbuilding)
{
    TezRef<Node> a = Node::Make();
    TezRef<Node> b = Node::Make();
    TezRef<Node> grandchild = Node::Make();
    scene->AddChild(scene->GetRoot(), a);
    scene->AddChild(scene->GetRoot(), b);
    scene->AddChild(a, grandchild);
    scene->RemoveAllChildren(scene->GetRoot());
    EXPECT_EQ(0, scene->GetRoot()->GetNumChildren());
    EXPECT_EQ(5u, scene->GetUnbuildCount());
    scene->Unbuild();
    EXPECT_EQ(2, a->unbuilds);
    EXPECT_EQ(1, grandchild->unbuilds);
    EXPECT_FALSE(grandchild->GetScene());
}

TEST_F(SceneTest, EventsBracketEveryChangeAndNestForAMove)
{
    TezRef<Counter> counter(new Counter());
    app.GetEventManager()->Subscribe(TezEventSceneChanging::Create(scene), counter);
    app.GetEventManager()->Subscribe(TezEventSceneChanged::Create(scene), counter);
    TezRef<Node> a = Node::Make();
    TezRef<Node> b = Node::Make();
    scene->AddChild(scene->GetRoot(), a);
    EXPECT_EQ("Scene Changing Event; Scene Changed Event; ", counter->log);
    scene->AddChild(scene->GetRoot(), b);
    counter->log.clear();
    scene->AddChild(b, a); // a move: the removal's pair inside the add's
    EXPECT_EQ("Scene Changing Event; Scene Changing Event; Scene Changed Event; Scene Changed Event; ", counter->log);
    counter->log.clear();
    scene->RemoveChild(Node::Make()); // not in a scene: nothing
    scene->AddChild(nullptr, a);
    EXPECT_EQ("", counter->log);
    scene = nullptr; // destruction reports nothing
    EXPECT_EQ("", counter->log);
    app.GetEventManager()->UnsubscribeAll();
}

TEST(SceneObject, PropertiesDescendToInheritingChildrenOnly)
{
    TestApplication app;
    TezRef<TezScene> scene = TezScene::Create();
    TezRef<Node> parent = Node::Make();
    TezRef<Node> inheriting = Node::Make();
    TezRef<Node> stopper = Node::Make();
    TezRef<Node> below = Node::Make();
    scene->AddChild(scene->GetRoot(), parent);
    scene->AddChild(parent, inheriting);
    scene->AddChild(parent, stopper);
    scene->AddChild(stopper, below);
    stopper->SetInheritProperty(TezSceneObject::Mappable, false);
    parent->SetProperty(TezSceneObject::Mappable, true);
    EXPECT_TRUE(inheriting->GetProperty(TezSceneObject::Mappable));
    EXPECT_FALSE(stopper->GetProperty(TezSceneObject::Mappable));
    EXPECT_FALSE(below->GetProperty(TezSceneObject::Mappable));
    EXPECT_TRUE(stopper->GetInheritProperty(TezSceneObject::Visible));
    stopper->SetInheritAllProperties(false);
    EXPECT_FALSE(stopper->GetInheritProperty(TezSceneObject::Visible));

    try {
        parent->SetProperty(static_cast<TezSceneObject::Property>(9), true);
        FAIL() << "no exception";
    } catch (std::out_of_range const& e) {
        EXPECT_STREQ("invalid bitset<N> position", e.what());
    }
    EXPECT_THROW(parent->GetInheritProperty(static_cast<TezSceneObject::Property>(-1)), std::out_of_range);
}

TEST(SceneObject, DefaultsAndSelectedColours)
{
    TezRef<TezSceneObject> object = TezSceneObject::Create();
    EXPECT_EQ(TezDefaultEffect::StaticType(), object->GetEffectType());
    EXPECT_STREQ("Generic Object", object->TypeName().c_str());
    EXPECT_TRUE(object->GetProperty(TezSceneObject::Visible));
    EXPECT_TRUE(object->GetProperty(TezSceneObject::NeedsBuild));
    EXPECT_FALSE(object->GetProperty(TezSceneObject::Mappable));
    EXPECT_EQ(TezVector4<float>(4 / 255.0f, 25 / 255.0f, 186 / 255.0f, 1), object->GetColor());
    EXPECT_EQ(TezVector4<float>(0.92f, 0, 0, 1), object->GetSelectedColor());

    // Pure red, brighter: hue 0 is below 0.9 and its value is already 1.
    object->SetColor(TezVector4<float>(1, 0, 0, 1));
    object->SetSelectAsBrighter(true);
    EXPECT_EQ(TezVector4<float>(1, 0, 0, 1), object->GetSelectedColor());
    object->SetColor(TezVector4<float>(0.5f, 0, 0, 1));
    EXPECT_EQ(TezVector4<float>(0.65f, 0, 0, 1), object->GetSelectedColor());
    object->SetSelectAsBrighter(false);
    object->SetSelectAsComplement(true);
    EXPECT_EQ(TezVector4<float>(0, 0.5f, 0.5f, 1), object->GetSelectedColor());
    EXPECT_TRUE(object->DrawChildren(TezSceneDrawData()));
}

// A box of its own for the bounds tests.
class Boxed : public TezSceneObject
{
public:
    static TezRef<Boxed> Make(TezBox3<float> box)
    {
        TezRef<Boxed> b(new Boxed());
        b->box = box;
        return b;
    }
    TezBox3<float> GetObjectBounds() override { return box; }
    TezBox3<float> box;
};

TEST(SceneObject, BoundsHonourVisibilityNoBoundsAndTransforms)
{
    TestApplication app;
    TezRef<TezScene> scene = TezScene::Create();
    TezRef<Boxed> parent = Boxed::Make(TezBox3<float>({0, 0, 0}, {1, 1, 1}));
    TezRef<Boxed> child = Boxed::Make(TezBox3<float>({2, 2, 2}, {3, 3, 3}));
    scene->AddChild(scene->GetRoot(), parent);
    scene->AddChild(parent, child);
    child->SetInheritProperty(TezSceneObject::Visible, false);
    parent->SetTransform(TezTranslationTransform<float>({10, 0, 0}));
    EXPECT_EQ(TezBox3<float>({10, 0, 0}, {13, 3, 3}), scene->GetBounds(false));
    parent->SetProperty(TezSceneObject::Visible, false);
    EXPECT_EQ(TezBox3<float>({12, 2, 2}, {13, 3, 3}), scene->GetBounds(false)); // children still count
    child->SetProperty(TezSceneObject::NoBounds, true);
    EXPECT_TRUE(scene->GetBounds(false).Empty());
    EXPECT_EQ(TezBox3<float>({12, 2, 2}, {13, 3, 3}), scene->GetBounds(true));
    scene->SetMinBounds(TezBox3<float>({-1, -1, -1}, {0, 0, 0}));
    EXPECT_EQ(TezBox3<float>({-1, -1, -1}, {0, 0, 0}), scene->GetBounds(false));
    EXPECT_EQ(TezVector3<float>(10, 0, 0), child->GetWorldMatrix() * TezVector3<float>(0, 0, 0));
}

TEST(Light, DefaultsAndShadowMatricesLookingDownOnTheBox)
{
    TezRef<TezLight> light = TezLight::Create();
    EXPECT_EQ(TezVector4<float>(0.6f, 0.6f, 0.6f, 1), light->GetAmbient());
    EXPECT_EQ(TezVector4<float>(0.9f, 0.9f, 0.9f, 1), light->GetDiffuse());
    EXPECT_TRUE(light->IsEnabled());

    // Straight above along Y: up becomes Z, and the box's middle lies on the
    // light's -z axis, |position - middle| away.
    TezBox3<float> const box({-1, -1, -1}, {1, 1, 1});
    light->SetPosition({0, 10, 0});
    light->SetShadowBounds(box);
    EXPECT_TRUE(light->ComputeShadowMatrices(TezSceneDrawData()));
    TezMatrix44<float> const view = light->GetShadowViewMatrix();
    EXPECT_EQ(TezVector3<float>(0, 0, -10), view * TezVector3<float>(0, 0, 0));
    EXPECT_EQ(TezVector3<float>(0, 0, 0), view * TezVector3<float>(0, 10, 0));
    // x = up ^ z with up = Z and z = Y: x is -X... and y = z ^ x.
    EXPECT_EQ(TezVector3<float>(-1, 0, -10), view * TezVector3<float>(1, 0, 0));
    EXPECT_EQ(light->GetShadowProjectionMatrix() * light->GetShadowViewMatrix(), light->GetShadowMatrix());

    // The projection maps the box's corners into -1..1 in x and y after the
    // division by w, as a perspective projection does for points at depth.
    TezMatrix44<float> const shadow = light->GetShadowMatrix();
    for (int i = 0; i < 8; ++i) {
        TezVector3<float> const c = box.Corner(i & 1, i & 2, i & 4);
        TezVector4<float> p = shadow * TezVector4<float>(c.x, c.y, c.z, 1.0f);
        EXPECT_LE(std::abs(p.x / p.w), 1.0001f) << i;
        EXPECT_LE(std::abs(p.y / p.w), 1.0001f) << i;
    }

    // The PSM form needs a camera.
    EXPECT_FALSE(light->ComputePSMShadowMatrices(TezSceneDrawData(), box));
}

} // namespace
