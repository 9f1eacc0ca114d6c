#include "core/RefCounter.h"

#include <new>

TezRefCounter::TezRefCounter() : m_counter(new (std::nothrow) std::atomic<int32_t>(0)) {}

TezRefCounter::TezRefCounter(TezRefCounter const& other) : m_counter(new (std::nothrow) std::atomic<int32_t>(0))
{
    if (m_counter)
        m_counter->store(other.GetRefCount());
}

TezRefCounter& TezRefCounter::operator=(TezRefCounter const& other)
{
    if (this != &other) {
        delete m_counter;
        m_counter = new (std::nothrow) std::atomic<int32_t>(0);
        if (m_counter)
            m_counter->store(other.GetRefCount());
    }
    return *this;
}

TezRefCounter::~TezRefCounter() { delete m_counter; }

int TezRefCounter::AddRef() { return ++*m_counter; }

int TezRefCounter::ReleaseRef()
{
    // The decrement's own result decides deletion, so two threads releasing
    // the last two references cannot both see zero.
    int left = --*m_counter;
    if (left == 0)
        delete this;
    return left;
}

int TezRefCounter::GetRefCount() const { return m_counter ? m_counter->load() : 0; }

bool TezRefCounter::AllocationCheck(TezRefCounter* object) { return object != nullptr && object->m_counter != nullptr; }
