#include "core/Object.h"

#include <gtest/gtest.h>

namespace {

struct Tracked : TezRefCounter
{
    static TezRef<Tracked> Create(int* deaths) { return TezRef<Tracked>(new Tracked(deaths)); }
    explicit Tracked(int* deaths) : m_deaths(deaths) {}
    Tracked(Tracked const&) = default;
    ~Tracked() override { ++*m_deaths; }
    int* m_deaths;
};

struct Derived : Tracked
{
    using Tracked::Tracked;
};

struct Other : TezRefCounter
{
};

} // namespace

TEST(TezRef, CountsAndDestroysOnce)
{
    int deaths = 0;
    {
        TezRef<Tracked> a = Tracked::Create(&deaths);
        EXPECT_EQ(1, a->GetRefCount());
        {
            TezRef<Tracked> b = a;
            EXPECT_EQ(2, a->GetRefCount());
            TezRef<Tracked> c;
            c = b;
            EXPECT_EQ(3, a->GetRefCount());
            c = std::move(b);
            EXPECT_EQ(2, a->GetRefCount());
            EXPECT_FALSE(b);
        }
        EXPECT_EQ(1, a->GetRefCount());
        a = a; // self-assignment keeps the object
        EXPECT_EQ(1, a->GetRefCount());
        EXPECT_EQ(0, deaths);
    }
    EXPECT_EQ(1, deaths);
}

TEST(TezRef, FreshObjectHasCountZeroAndCopiesTakeTheSourceCount)
{
    int deaths = 0;
    Tracked plain(&deaths);
    EXPECT_EQ(0, plain.GetRefCount());

    TezRef<Tracked> a = Tracked::Create(&deaths);
    TezRef<Tracked> b = a;
    Tracked copy(*a);
    EXPECT_EQ(2, copy.GetRefCount());
    EXPECT_EQ(2, a->GetRefCount()); // the source keeps its own cell
    Tracked assigned(&deaths);
    assigned = *a;
    EXPECT_EQ(2, assigned.GetRefCount());
    EXPECT_TRUE(TezRefCounter::AllocationCheck(&plain));
    EXPECT_FALSE(TezRefCounter::AllocationCheck(nullptr));
}

TEST(TezRef, UpcastIsImplicitDowncastIsChecked)
{
    int deaths = 0;
    TezRef<Derived> derived(new Derived(&deaths));
    TezRef<Tracked> base = derived;
    TezRef<TezRefCounter> root = base;
    EXPECT_EQ(3, derived->GetRefCount());

    TezRef<Derived> back(root);
    EXPECT_EQ(derived, back);
    TezRef<Other> wrong(root);
    EXPECT_FALSE(wrong);
    EXPECT_TRUE(wrong == nullptr);

    TezRef<Derived> fromNull{TezRef<TezRefCounter>()};
    EXPECT_FALSE(fromNull);
}
