#include "core/Events.h"
#include "core/Object.h"

#include <gtest/gtest.h>

namespace {

class TezTestShape : public TezTypifiedObject
{
    TEZ_TYPIFIED_CLASS(TezTestShape)
};

TEZ_TYPIFIED_IMPL(TezTestShape, "Test Shape")

int g_madeA = 0, g_madeB = 0;
TezRef<TezTypifiedObject> MakeA()
{
    ++g_madeA;
    return TezTestShape::CreateAsTypified();
}
TezRef<TezTypifiedObject> MakeB()
{
    ++g_madeB;
    return TezTestShape::CreateAsTypified();
}

} // namespace

TEST(TezTypeRegistry, ClassesRegisterAtLoadAndBuildByTypeAndName)
{
    uint32_t type = TezTestShape::StaticType();
    EXPECT_NE(TezInvalidObjectType, type);
    EXPECT_STREQ("Test Shape", TezTypeNameFromType(type));

    TezRef<TezTypifiedObject> byType = TezCreateObjectFromType(type);
    ASSERT_TRUE(byType);
    EXPECT_EQ(type, byType->Type());
    EXPECT_EQ(1, byType->GetRefCount());

    TezRef<TezTypifiedObject> byName = TezCreateObjectFromName(TezString("Test Shape"));
    ASSERT_TRUE(byName);
    EXPECT_TRUE(TezRef<TezTestShape>(byName));

    EXPECT_STREQ("Request Redraw Event", TezTypeNameFromType(TezEventRequestRedraw::StaticType()));
    EXPECT_TRUE(TezRef<TezEventDocumentChanged>(TezCreateObjectFromName(TezString("Document Changed Event"))));
}

TEST(TezTypeRegistry, UnknownLookupsGiveNull)
{
    EXPECT_EQ(0, TezTypeNameFromType(0).Length());
    EXPECT_FALSE(TezCreateObjectFromType(0));
    EXPECT_FALSE(TezCreateObjectFromType(0xFFFFFFF0u));
    EXPECT_FALSE(TezCreateObjectFromName(TezString("No Such Class")));
}

TEST(TezTypeRegistry, SharedNameResolvesToTheClassListedFirstWhateverTheOrder)
{
    // TezSceneFrame stands before TezSceneRing in the kernel's table, so it
    // owns their shared name even when it registers second.
    uint32_t ring = TezAssignObjectType();
    uint32_t frame = TezAssignObjectType();
    TezString shared("Shared Name Under Test");
    TezInitializeClassType(ring, shared, &MakeB, "TezSceneRing");
    TezInitializeClassType(frame, shared, &MakeA, "TezSceneFrame");

    g_madeA = g_madeB = 0;
    EXPECT_TRUE(TezCreateObjectFromName(shared));
    EXPECT_EQ(1, g_madeA);
    EXPECT_EQ(0, g_madeB);
    // The later class keeps its name and stays reachable by id.
    EXPECT_STREQ("Shared Name Under Test", TezTypeNameFromType(ring));
    EXPECT_TRUE(TezCreateObjectFromType(ring));
    EXPECT_EQ(1, g_madeB);

    // Unlisted classes: the first to register keeps the name.
    uint32_t first = TezAssignObjectType();
    uint32_t second = TezAssignObjectType();
    TezString other("Another Shared Name");
    TezInitializeType(first, other, &MakeA);
    TezInitializeType(second, other, &MakeB);
    g_madeA = g_madeB = 0;
    TezCreateObjectFromName(other);
    EXPECT_EQ(1, g_madeA);

    for (uint32_t t : {ring, frame})
        TezUninitializeType(t, shared);
    for (uint32_t t : {first, second})
        TezUninitializeType(t, other);
    EXPECT_FALSE(TezCreateObjectFromName(shared));
    EXPECT_FALSE(TezCreateObjectFromType(ring));
}
