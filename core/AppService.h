#pragma once
// TezAppService<T>: how a manager class reaches the application's instance
// of itself without knowing the application. The application hands over an
// accessor at load time (core/Application.cpp); without one, or without an
// application, Get answers a null reference.

#include "core/RefCounter.h"

template <class T>
class TezAppService
{
public:
    using Accessor = TezRef<T> (*)();
    static void Set(Accessor accessor) { s_accessor = accessor; }
    static TezRef<T> Get() { return s_accessor ? s_accessor() : TezRef<T>(); }

private:
    static inline Accessor s_accessor = nullptr;
};
