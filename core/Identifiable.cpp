#include "core/Identifiable.h"

uint32_t const TezInvalidObjectId = 0;

uint32_t TezIdGenerator::GenerateId(TezIdentifiableObject* object)
{
    uint32_t id = m_nextId;
    m_objects[id] = object;
    ++m_nextId;
    return id;
}

TezIdentifiableObject* TezIdGenerator::ObjectFromId(uint32_t id) const
{
    auto found = m_objects.find(id);
    return found == m_objects.end() ? nullptr : found->second;
}

bool TezIdGenerator::RequestId(uint32_t id, TezIdentifiableObject*)
{
    // A requested id is never granted: a free one stays free, a taken one
    // stays with its owner. Only the generator's position moves past it.
    if (m_objects.find(id) == m_objects.end())
        return false;
    if (id >= m_nextId)
        m_nextId = id + 1;
    return false;
}

bool TezIdGenerator::DestroyId(uint32_t id) { return m_objects.erase(id) > 0; }

TezIdGenerator* TezIdentifiableObject::GetIdGenerator()
{
    // Constructed on first use and kept until unload.
    static TezIdGenerator generator;
    return &generator;
}

TezIdentifiableObject::TezIdentifiableObject(uint32_t id)
{
    if (id != 0 && GetIdGenerator()->RequestId(id, this))
        m_id = id;
    else
        m_id = GetIdGenerator()->GenerateId(this);
}

TezIdentifiableObject::TezIdentifiableObject(TezIdentifiableObject const& other)
    : TezTypifiedObject(other), m_id(GetIdGenerator()->GenerateId(this))
{
}

TezIdentifiableObject& TezIdentifiableObject::operator=(TezIdentifiableObject const& other)
{
    // An object keeps its own identity when assigned to.
    TezTypifiedObject::operator=(other);
    return *this;
}

TezIdentifiableObject::~TezIdentifiableObject() { GetIdGenerator()->DestroyId(m_id); }

bool TezIdentifiableObject::RequestId(uint32_t id)
{
    if (!GetIdGenerator()->RequestId(id, this))
        return false;
    m_id = id;
    return true;
}

TezIdentifiableObject* TezObjectFromId(uint32_t id)
{
    return TezIdentifiableObject::GetIdGenerator()->ObjectFromId(id);
}

TezRef<TezUniqueNameManager> TezUniqueNameManager::Create()
{
    return TezRef<TezUniqueNameManager>(new TezUniqueNameManager());
}

bool TezUniqueNameManager::AddName(TezString const& name) { return m_names.insert(name).second; }

bool TezUniqueNameManager::IsNameTaken(TezString const& name) const { return m_names.count(name) > 0; }

bool TezUniqueNameManager::RemoveName(TezString const& name) { return m_names.erase(name) > 0; }
