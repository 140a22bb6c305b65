#include <HdwLib/bus/HdwSignalGroup.h>
#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/bus/internal/PlatformSignal.h>

#include <algorithm>

CKVX_HdwSignalGroup::CKVX_HdwSignalGroup() : m_Readiness(hdw::platform::ReadinessCreate()) {}

CKVX_HdwSignalGroup::~CKVX_HdwSignalGroup()
{
    // Members take their own lock before the group's: collect them first.
    std::vector<CKVX_HdwSignalService*> members;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        members = m_Members;
    }
    for (CKVX_HdwSignalService* member : members)
        member->LeaveGroupIf(this);
    hdw::platform::ReadinessDestroy(m_Readiness);
}

int CKVX_HdwSignalGroup::GetFileDescriptor() const
{
    return hdw::platform::ReadinessDescriptor(m_Readiness);
}

void* CKVX_HdwSignalGroup::GetWaitHandle() const
{
    return hdw::platform::ReadinessHandle(m_Readiness);
}

unsigned CKVX_HdwSignalGroup::GetReadyMembers() const
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_ReadyMembers;
}

unsigned CKVX_HdwSignalGroup::GetMemberCount() const
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    return static_cast<unsigned>(m_Members.size());
}

void CKVX_HdwSignalGroup::Add(CKVX_HdwSignalService* member, bool ready)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Members.push_back(member);
    if (ready && m_ReadyMembers++ == 0)
        hdw::platform::ReadinessSet(m_Readiness);
}

void CKVX_HdwSignalGroup::Remove(CKVX_HdwSignalService* member, bool ready)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Members.erase(std::remove(m_Members.begin(), m_Members.end(), member), m_Members.end());
    if (ready && --m_ReadyMembers == 0)
        hdw::platform::ReadinessReset(m_Readiness);
}

void CKVX_HdwSignalGroup::MemberReadyChanged(bool ready)
{
    std::lock_guard<std::mutex> lock(m_Mutex);
    // Only the first member to turn ready and the last to turn idle touch
    // the system object.
    if (ready) {
        if (m_ReadyMembers++ == 0)
            hdw::platform::ReadinessSet(m_Readiness);
    } else if (--m_ReadyMembers == 0) {
        hdw::platform::ReadinessReset(m_Readiness);
    }
}
