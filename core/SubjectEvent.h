#pragma once
// Events about one subject (a selection, a scene): a pattern matches only
// events that carry the very same object (a null one matches only null).
// Each subsystem declares its subject events with TEZ_SUBJECT_EVENT beside
// its subject's class and defines them with TEZ_SUBJECT_EVENT_IMPL.

#include "core/Events.h"

#define TEZ_SUBJECT_EVENT(Class, Subject, Getter, member)                                                              \
    class TEZ_API Class : public TezEvent                                                                              \
    {                                                                                                                  \
        TEZ_TYPIFIED_CLASS(Class)                                                                                      \
    public:                                                                                                            \
        static TezRef<Class> Create(TezRef<Subject> subject);                                                          \
        bool IsMatching(TezRef<TezEvent> pattern) override;                                                            \
        TezRef<Subject> Getter() const { return member; }                                                              \
        ~Class() override;                                                                                             \
                                                                                                                       \
    protected:                                                                                                         \
        Class();                                                                                                       \
        TezRef<Subject> member;                                                                                        \
    };

#define TEZ_SUBJECT_EVENT_IMPL(Class, Name, Subject, member)                                                           \
    TEZ_TYPIFIED_IMPL(Class, Name)                                                                                     \
    Class::Class() = default;                                                                                          \
    Class::~Class() = default;                                                                                         \
    TezRef<Class> Class::Create(TezRef<Subject> subject)                                                               \
    {                                                                                                                  \
        TezRef<Class> event(new Class());                                                                              \
        event->member = subject;                                                                                       \
        return event;                                                                                                  \
    }                                                                                                                  \
    bool Class::IsMatching(TezRef<TezEvent> pattern)                                                                   \
    {                                                                                                                  \
        if (!TezEvent::IsMatching(pattern))                                                                            \
            return false;                                                                                              \
        TezRef<Class> other(pattern);                                                                                  \
        return other && other->member.Get() == member.Get();                                                           \
    }
