#include "DocumentFixture.h"

#include "core/Logger.h"
#include "document/CacheManager.h"

#include <sys/stat.h>

namespace {

class Named : public TezDocumentObject
{
    TEZ_TYPIFIED_CLASS(Named)
public:
    static TezRef<Named> Create(char const* name)
    {
        TezRef<Named> object(new Named());
        object->SetName(TezString(name));
        return object;
    }
};

TEZ_TYPIFIED_IMPL(Named, "Test Cached Object")

bool Exists(TezString const& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

} // namespace

TEST(TezCacheManager, ParksObjectsAndReadsThemBack)
{
    TezString path;
    {
        auto cache = TezCacheManager::Create(TezString("cache\\test"), true);
        EXPECT_STREQ((std::string(TezLogger::GetTempFilePath()) + "cache/test/").c_str(), cache->GetCacheDirectory());

        EXPECT_EQ(0, cache->SaveObjectToCache(Named::Create("zero")));
        EXPECT_EQ(1, cache->SaveObjectToCache(Named::Create("one")));
        EXPECT_EQ(2, cache->SaveObjectToCache(Named::Create("two")));
        EXPECT_EQ(3, cache->SaveObjectToCache(Named::Create("three")));
        path = cache->GetFileName(1);
        EXPECT_EQ(' ', path.c_str()[path.Length() - 1]); // ".cache " with its blank
        EXPECT_TRUE(Exists(path));

        cache->RemoveObjectFromCache(2);
        EXPECT_EQ(2, cache->SaveObjectToCache(Named::Create("again")));
        cache->RemoveObjectFromCache(0);
        cache->RemoveObjectFromCache(77); // unknown: nothing changes
        EXPECT_EQ(0, cache->SaveObjectToCache(Named::Create("zero again")));

        auto back = Named::Create("blank");
        cache->ReadObjectFromCache(1, back);
        EXPECT_STREQ("one", back->GetName());
        cache->ReadObjectFromCache(42, back);
        EXPECT_STREQ("one", back->GetName());
    }
    EXPECT_FALSE(Exists(path)); // the cache leaves no files behind
}
