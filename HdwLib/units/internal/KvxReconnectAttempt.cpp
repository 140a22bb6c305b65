#include <HdwLib/units/internal/KvxReconnectAttempt.h>

namespace hdw::units {

CReconnectAttempt::~CReconnectAttempt()
{
    Cancel();
}

void CReconnectAttempt::Start(std::function<unsigned()> work)
{
    Cancel();
    m_Done.store(false, std::memory_order_relaxed);
    m_Thread = std::thread([this, work = std::move(work)] {
        m_Result = work();
        m_Done.store(true, std::memory_order_release);
    });
}

std::optional<unsigned> CReconnectAttempt::Collect()
{
    if (!m_Thread.joinable() || !m_Done.load(std::memory_order_acquire))
        return std::nullopt;
    m_Thread.join();
    return m_Result;
}

void CReconnectAttempt::Cancel()
{
    if (m_Thread.joinable())
        m_Thread.join();
}

} // namespace hdw::units
