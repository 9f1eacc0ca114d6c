#include "core/Progress.h"

#include "core/String.h"

// The manager is looked up once: a job keeps reporting to the bridge it
// started with even if the host swaps applications meanwhile.
TezProgress::TezProgress(bool enabled) : m_ui(enabled ? TezUIManager::GetAppUIManager() : nullptr) {}

TezProgress::TezProgress(char const* message, uint64_t count) : TezProgress(true) { Start(message, count); }

TezProgress::~TezProgress()
{
    if (m_open)
        End();
}

void TezProgress::SetMessage(char const* message)
{
    if (m_ui && message)
        m_ui->SetProgressMessage(TezString(message));
}

void TezProgress::Start(char const* message, uint64_t count)
{
    if (!m_ui)
        return;
    SetMessage(message);
    m_ui->StartProgress(count);
    m_open = true;
}

void TezProgress::Step(uint32_t count)
{
    if (m_ui)
        m_ui->StepProgress(count);
}

void TezProgress::End()
{
    if (m_ui)
        m_ui->EndProgress();
    m_open = false;
}

bool TezProgress::StopRequested() const { return m_ui && m_ui->GetStopFlag(); }

TezProgress::Nested::Nested(TezProgress const& outer, bool flag) : m_ui(outer.m_ui.Get())
{
    if (m_ui)
        m_ui->StartNestedSection(flag);
}

TezProgress::Nested::~Nested()
{
    if (m_ui)
        m_ui->FinishNestedSection();
}
