#pragma once
// Object identity: 32-bit ids handed out by one process-wide generator.
//
// An id doubles as a picking colour: TezIdToColor spreads its four bytes over
// RGBA, TezIdFromColor reads back the low three only, so ids at or above 2^24
// do not round-trip. A chosen id can never be obtained: RequestId always
// answers false, so objects read from a file always get fresh ids.

#include "core/Typified.h"

#include <map>
#include <set>

class TezIdentifiableObject;

TEZ_API extern uint32_t const TezInvalidObjectId;

class TEZ_API TezIdGenerator
{
public:
    TezIdGenerator() = default;
    virtual uint32_t GenerateId(TezIdentifiableObject* object);
    virtual TezIdentifiableObject* ObjectFromId(uint32_t id) const;
    virtual bool RequestId(uint32_t id, TezIdentifiableObject* object);
    virtual bool DestroyId(uint32_t id);
    virtual ~TezIdGenerator() = default;

    uint32_t GetNextId() const { return m_nextId; }

private:
    uint32_t m_nextId = 1;
    std::map<uint32_t, TezIdentifiableObject*> m_objects;
};

class TEZ_API TezIdentifiableObject : public TezTypifiedObject
{
public:
    ~TezIdentifiableObject() override;
    virtual uint32_t Id() const { return m_id; }
    virtual bool RequestId(uint32_t id);

    static TezIdGenerator* GetIdGenerator();

protected:
    explicit TezIdentifiableObject(uint32_t id = 0);
    TezIdentifiableObject(TezIdentifiableObject const& other);
    TezIdentifiableObject& operator=(TezIdentifiableObject const& other);

private:
    uint32_t m_id = TezInvalidObjectId;
};

TEZ_API TezIdentifiableObject* TezObjectFromId(uint32_t id);

// A set of names offered to hosts that need unique object names.
class TEZ_API TezUniqueNameManager : public TezRefCounter
{
public:
    static TezRef<TezUniqueNameManager> Create();
    bool AddName(TezString const& name);
    bool IsNameTaken(TezString const& name) const;
    bool RemoveName(TezString const& name);

private:
    TezUniqueNameManager() = default;
    std::set<TezString> m_names;
};
