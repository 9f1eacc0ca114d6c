#include "document/CacheManager.h"

#include "core/Logger.h"
#include "platform/System.h"

#include <cstdio>

TezRef<TezCacheManager> TezCacheManager::Create(TezString const& path, bool useTempDirectory)
{
    TezRef<TezCacheManager> cache(new TezCacheManager());
    if (!useTempDirectory) {
        cache->m_cacheDirectory = path;
        return cache;
    }
    TezString temp(TezLogger::GetTempFilePath());
    // Either separator may be used; folders are walked a component at a time.
    TezString folder(TezTransformPath(path.c_str()).c_str());
    int length = folder.Length();
    for (int i = 0; i <= length; ++i) {
        if (i < length && folder.c_str()[i] != '/')
            continue;
        TezString prefix = temp + folder.Left(i);
        if (!TezIsDirectory(prefix)) {
            TezCreateDir(prefix);
            if (!TezIsDirectory(prefix)) {
                TezLogger::info("can't create cache directory. Using the application directory.\n");
                return cache;
            }
        }
    }
    cache->m_cacheDirectory = temp + folder + TezString("/");
    return cache;
}

TezCacheManager::~TezCacheManager() { DeleteCache(); }

TezString TezCacheManager::GetFileName(int id) const
{
    TezString directory = m_cacheDirectory.Length() > 250 ? m_cacheDirectory.Left(250) : m_cacheDirectory;
    TezString name;
    name.Format("%smvcache%d.cache ", directory.c_str(), id);
    return name.Length() > 300 ? name.Left(300) : name;
}

int TezCacheManager::SaveObjectToCache(TezRef<TezDocumentObject> object)
{
    int32_t id = 0;
    for (auto const& entry : m_entries) {
        if (entry.first > id)
            break;
        ++id;
    }
    m_entries[id] = GetFileName(id);
    TezRef<TezArchive> archive = TezArchive::Open(m_entries[id].c_str(), TezArchive::Write);
    if (archive && object)
        object->Save(archive);
    return id;
}

void TezCacheManager::ReadObjectFromCache(int id, TezRef<TezDocumentObject> object)
{
    auto found = m_entries.find(id);
    if (found == m_entries.end() || !object)
        return;
    TezRef<TezArchive> archive = TezArchive::Open(found->second.c_str(), TezArchive::Read);
    if (archive)
        object->Load(archive);
}

void TezCacheManager::RemoveObjectFromCache(int id)
{
    auto found = m_entries.find(id);
    if (found == m_entries.end())
        return;
    std::remove(found->second.c_str());
    m_entries.erase(found);
}

void TezCacheManager::DeleteCache()
{
    for (auto const& entry : m_entries)
        std::remove(entry.second.c_str());
}
