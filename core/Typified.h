#pragma once
// Run-time type identity and the process-wide type registry.
//
// Every concrete typified class carries TEZ_TYPIFIED_CLASS(Class) in its body
// and TEZ_TYPIFIED_IMPL(Class, "Display name") in one .cpp. Loading the library
// registers each class under its type id and display name; the registry can
// then build an object from either. Type ids live for one process only; the
// display names are what files store.
//
// Display names are not unique. Where two classes share one, looking the name
// up gives the class that stands first in the kernel's registration table,
// whatever order the object files were loaded in.

#include "core/RefCounter.h"
#include "core/String.h"

#include <cstdint>

class TEZ_API TezTypifiedObject : public TezRefCounter
{
public:
    ~TezTypifiedObject() override = default;
    virtual uint32_t Type() const = 0;
    virtual TezString const& TypeName() const = 0;
};

using TezTypeFactory = TezRef<TezTypifiedObject> (*)();

TEZ_API extern uint32_t const TezInvalidObjectType;

TEZ_API uint32_t TezAssignObjectType();
TEZ_API void TezInitializeType(uint32_t type, TezString const& name, TezTypeFactory factory);
TEZ_API void TezUninitializeType(uint32_t type, TezString const& name);
TEZ_API TezString TezTypeNameFromType(uint32_t type);
TEZ_API TezRef<TezTypifiedObject> TezCreateObjectFromType(uint32_t type);
TEZ_API TezRef<TezTypifiedObject> TezCreateObjectFromName(TezString const& name);

// Registration as done by the class block: the class's own C++ name ranks the
// entry when another class already holds the same display name.
TEZ_API void TezInitializeClassType(uint32_t type, TezString const& name, TezTypeFactory factory,
                                    char const* className);

// Registers T at load and unregisters it at unload. Built as the last static
// of T's class block.
template <class T>
class TezTypeReservation
{
public:
    explicit TezTypeReservation(char const* className)
    {
        TezInitializeClassType(T::StaticType(), T::StaticTypeName(), &T::CreateAsTypified, className);
    }
    ~TezTypeReservation() { TezUninitializeType(T::StaticType(), T::StaticTypeName()); }
    TezTypeReservation(TezTypeReservation const&) = delete;
    TezTypeReservation& operator=(TezTypeReservation const&) = delete;
};

#define TEZ_TYPIFIED_CLASS(Class)                                                                                      \
public:                                                                                                                \
    static uint32_t StaticType();                                                                                      \
    static TezString const& StaticTypeName();                                                                          \
    static TezRef<TezTypifiedObject> CreateAsTypified();                                                               \
    uint32_t Type() const override { return StaticType(); }                                                            \
    TezString const& TypeName() const override { return StaticTypeName(); }                                            \
                                                                                                                       \
private:                                                                                                               \
    static uint32_t m_type;                                                                                            \
    static TezString m_typeName;                                                                                       \
    static TezTypeReservation<Class> m_typeReservation;                                                                \
                                                                                                                       \
public:

#define TEZ_TYPIFIED_IMPL(Class, Name)                                                                                 \
    uint32_t Class::m_type = 0;                                                                                        \
    TezString Class::m_typeName(Name);                                                                                 \
    TezTypeReservation<Class> Class::m_typeReservation(#Class);                                                        \
    uint32_t Class::StaticType()                                                                                       \
    {                                                                                                                  \
        if (m_type == 0)                                                                                               \
            m_type = TezAssignObjectType();                                                                            \
        return m_type;                                                                                                 \
    }                                                                                                                  \
    TezString const& Class::StaticTypeName() { return m_typeName; }                                                    \
    TezRef<TezTypifiedObject> Class::CreateAsTypified() { return TezRef<TezTypifiedObject>(new Class()); }

#include <utility>
#include <vector>

// Every registered type id with its display name, ordered by id.
TEZ_API std::vector<std::pair<uint32_t, TezString>> TezRegisteredTypes();
