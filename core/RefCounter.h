#pragma once
// TezRefCounter and TezRef<T>: intrusive reference counting for kernel objects.
//
// The count lives in a separately allocated atomic cell. A fresh object has
// count 0; the first TezRef takes it to 1 and the last TezRef to go deletes it.
// Copying a counted object gives the copy a fresh cell holding the source's
// current count (not 0): callers depend on that.
//
// TezRef<T> counts through the free functions TezRefCounterAddRef/ReleaseRef.
// A class that is used through TezRef while only forward-declared declares its
// pair with TEZ_DECLARE_REF_FUNCTIONS and defines it with TEZ_DEFINE_REF_FUNCTIONS.

#include "platform/Api.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

class TEZ_API TezRefCounter
{
public:
    virtual int AddRef();
    virtual int ReleaseRef();
    virtual ~TezRefCounter();

    int GetRefCount() const;
    // True when the object's count cell exists; false for a null object too.
    static bool AllocationCheck(TezRefCounter* object);

protected:
    TezRefCounter();
    TezRefCounter(TezRefCounter const& other);
    TezRefCounter& operator=(TezRefCounter const& other);

private:
    std::atomic<int32_t>* m_counter;
};

template <class T>
inline void TezRefCounterAddRef(T* object)
{
    object->AddRef();
}

template <class T>
inline void TezRefCounterReleaseRef(T* object)
{
    object->ReleaseRef();
}

#define TEZ_DECLARE_REF_FUNCTIONS(Class)                                                                               \
    class Class;                                                                                                       \
    TEZ_API void TezRefCounterAddRef(Class* object);                                                                   \
    TEZ_API void TezRefCounterReleaseRef(Class* object);

#define TEZ_DEFINE_REF_FUNCTIONS(Class)                                                                                \
    void TezRefCounterAddRef(Class* object) { object->AddRef(); }                                                      \
    void TezRefCounterReleaseRef(Class* object) { object->ReleaseRef(); }

template <class T>
class TezRef
{
public:
    TezRef() = default;
    TezRef(std::nullptr_t) {}
    TezRef(T* object) : m_object(object) { Take(); }
    TezRef(TezRef const& other) : m_object(other.m_object) { Take(); }
    TezRef(TezRef&& other) noexcept : m_object(other.m_object) { other.m_object = nullptr; }

    // Derived to base converts implicitly.
    template <class U, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
    TezRef(TezRef<U> const& other) : m_object(other.Get())
    {
        Take();
    }

    // Base to derived is a checked cast: null when the object is not a T.
    template <class U, std::enable_if_t<!std::is_convertible_v<U*, T*> && std::is_convertible_v<T*, U*>, int> = 0>
    explicit TezRef(TezRef<U> const& other) : m_object(dynamic_cast<T*>(other.Get()))
    {
        Take();
    }

    ~TezRef() { Give(); }

    TezRef& operator=(TezRef const& other)
    {
        TezRef(other).Swap(*this);
        return *this;
    }
    TezRef& operator=(TezRef&& other) noexcept
    {
        TezRef(std::move(other)).Swap(*this);
        return *this;
    }

    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }
    bool IsNull() const { return m_object == nullptr; }

    void Swap(TezRef& other) noexcept { std::swap(m_object, other.m_object); }

    template <class U>
    bool operator==(TezRef<U> const& other) const
    {
        return m_object == other.Get();
    }
    template <class U>
    bool operator!=(TezRef<U> const& other) const
    {
        return m_object != other.Get();
    }
    bool operator==(std::nullptr_t) const { return m_object == nullptr; }
    bool operator!=(std::nullptr_t) const { return m_object != nullptr; }
    bool operator<(TezRef const& other) const { return m_object < other.m_object; }

private:
    void Take()
    {
        if (m_object)
            TezRefCounterAddRef(m_object);
    }
    void Give()
    {
        if (m_object)
            TezRefCounterReleaseRef(m_object);
        m_object = nullptr;
    }

    T* m_object = nullptr;
};
