#include "core/Object.h"

#include <gtest/gtest.h>

namespace {

class TezTestItem : public TezIdentifiableObject
{
    TEZ_TYPIFIED_CLASS(TezTestItem)
public:
    explicit TezTestItem(uint32_t id = 0) : TezIdentifiableObject(id) {}
};

TEZ_TYPIFIED_IMPL(TezTestItem, "Test Item")

} // namespace

TEST(TezIdGenerator, IdsAreFreshAndMapBackToTheirObjects)
{
    auto a = TezRef<TezTestItem>(new TezTestItem());
    auto b = TezRef<TezTestItem>(new TezTestItem());
    EXPECT_NE(TezInvalidObjectId, a->Id());
    EXPECT_EQ(a->Id() + 1, b->Id());
    EXPECT_EQ(a.Get(), TezObjectFromId(a->Id()));

    uint32_t gone = b->Id();
    b = nullptr;
    EXPECT_EQ(nullptr, TezObjectFromId(gone));
    auto c = TezRef<TezTestItem>(new TezTestItem());
    EXPECT_GT(c->Id(), gone); // freed ids are not reused
}

TEST(TezIdGenerator, RequestIdNeverGrantsAnId)
{
    TezIdGenerator* generator = TezIdentifiableObject::GetIdGenerator();
    auto owner = TezRef<TezTestItem>(new TezTestItem());
    uint32_t next = generator->GetNextId();

    // A free id stays free.
    EXPECT_FALSE(owner->RequestId(next + 100));
    EXPECT_EQ(nullptr, TezObjectFromId(next + 100));
    EXPECT_EQ(next, generator->GetNextId());

    // A used id stays with its owner.
    auto other = TezRef<TezTestItem>(new TezTestItem());
    EXPECT_FALSE(other->RequestId(owner->Id()));
    EXPECT_EQ(owner.Get(), TezObjectFromId(owner->Id()));
    EXPECT_NE(owner->Id(), other->Id());

    // Two objects built with the same wanted id get two generated ids.
    auto x = TezRef<TezTestItem>(new TezTestItem(owner->Id()));
    auto y = TezRef<TezTestItem>(new TezTestItem(owner->Id()));
    EXPECT_NE(x->Id(), y->Id());
    EXPECT_NE(owner->Id(), x->Id());
}

TEST(TezIdGenerator, RequestOfATakenIdAboveTheCounterMovesTheCounter)
{
    TezIdGenerator generator;
    auto item = TezRef<TezTestItem>(new TezTestItem());
    EXPECT_EQ(1u, generator.GenerateId(item.Get()));
    EXPECT_EQ(2u, generator.GenerateId(item.Get()));
    EXPECT_FALSE(generator.RequestId(2, item.Get()));
    EXPECT_EQ(3u, generator.GetNextId());
    EXPECT_TRUE(generator.DestroyId(2));
    EXPECT_FALSE(generator.DestroyId(2));
}

TEST(TezUniqueNameManager, NamesAreCaseSensitive)
{
    auto names = TezUniqueNameManager::Create();
    EXPECT_TRUE(names->AddName(TezString("Part")));
    EXPECT_FALSE(names->AddName(TezString("Part")));
    EXPECT_TRUE(names->AddName(TezString("part")));
    EXPECT_TRUE(names->IsNameTaken(TezString("Part")));
    EXPECT_TRUE(names->RemoveName(TezString("Part")));
    EXPECT_FALSE(names->RemoveName(TezString("Part")));
    EXPECT_FALSE(names->IsNameTaken(TezString("Part")));
}
