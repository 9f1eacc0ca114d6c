#pragma once
// TezCacheManager: parks document objects on disk, one archive file each,
// and reads them back into the same object by a small integer id.
//
// File names are "<dir>mvcache<id>.cache " (the trailing blank is part of the
// name). With useTempDirectory the folder is made below the logger's temp
// folder (components separated by "/" or "\"); when it cannot be made, files
// go to the working directory. Ids are the smallest free ones. The destructor
// deletes every listed file.

#include "document/DocumentObject.h"

#include <map>

class TEZ_API TezCacheManager : public TezRefCounter
{
public:
    static TezRef<TezCacheManager> Create(TezString const& path, bool useTempDirectory);
    ~TezCacheManager() override;
    TezCacheManager(TezCacheManager const& other) = default;
    TezCacheManager& operator=(TezCacheManager const& other) = default;

    int SaveObjectToCache(TezRef<TezDocumentObject> object);
    // An unknown id leaves the object as it is.
    void ReadObjectFromCache(int id, TezRef<TezDocumentObject> object);
    void RemoveObjectFromCache(int id);
    // Deletes every listed file; the entries stay.
    void DeleteCache();

    TezString const& GetCacheDirectory() const { return m_cacheDirectory; }
    TezString GetFileName(int id) const;

private:
    TezCacheManager() = default;
    TezString m_cacheDirectory;
    std::map<int32_t, TezString> m_entries;
};
