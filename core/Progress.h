#pragma once
// TezProgress: how a long job reports to the host and learns that it should
// stop, through the application's UI manager.
//
// A section is a message, StartProgress(count), steps, and EndProgress. The
// object ends a section still open when it goes out of scope; End forwards
// EndProgress whether or not a section is open, as jobs that end once after
// several Starts rely on. Without an application, or when made disabled,
// every call is a no-op and StopRequested is false.
//
// Step may be called from several threads at once: it only forwards, and
// the host's callback must cope, as with any UI manager call.

#include "core/UIManager.h"

#include <cstdint>

class TEZ_API TezProgress
{
public:
    explicit TezProgress(bool enabled = true);
    // Opens a section at once; a null message leaves the current one standing.
    TezProgress(char const* message, uint64_t count);
    // A message alone would pass for the bool above.
    TezProgress(char const* message) = delete;
    ~TezProgress();
    TezProgress(TezProgress const&) = delete;
    TezProgress& operator=(TezProgress const&) = delete;

    // Sets the message without opening a section.
    void SetMessage(char const* message);
    // Opens a section: the message unless null, then StartProgress(count).
    void Start(char const* message, uint64_t count);
    void Start(uint64_t count) { Start(nullptr, count); }
    void Step(uint32_t count = 1);
    void End();
    // Whether the host raised its stop flag; polled, never cached.
    bool StopRequested() const;
    // Whether the calls reach a UI manager.
    bool IsReporting() const { return static_cast<bool>(m_ui); }

    // A job inside this one, bracketed by StartNestedSection(flag) and
    // FinishNestedSection when it goes out of scope.
    class TEZ_API Nested
    {
    public:
        explicit Nested(TezProgress const& outer, bool flag = false);
        ~Nested();
        Nested(Nested const&) = delete;
        Nested& operator=(Nested const&) = delete;

    private:
        TezUIManager* m_ui;
    };

private:
    TezRef<TezUIManager> m_ui;
    bool m_open = false;
};
